#include "rsa_key_completion.h"

#include <memory>

#include <openssl/bn.h>
#include <openssl/err.h>

namespace quelm {
namespace {

struct BnFree {
    void operator()(BIGNUM* bn) const { BN_clear_free(bn); }
};
struct BnCtxFree {
    void operator()(BN_CTX* ctx) const { BN_CTX_free(ctx); }
};
using Bn = std::unique_ptr<BIGNUM, BnFree>;

Bn secure_bn() {
    Bn bn(BN_secure_new());
    if (!bn) throw std::bad_alloc();
    return bn;
}

Bn from_attribute(const AttributeTemplate& key, CK_ATTRIBUTE_TYPE type) {
    const CK_ATTRIBUTE* attribute = key.find(type);
    if (!attribute || !attribute->pValue || attribute->ulValueLen == 0) return nullptr;
    Bn bn = secure_bn();
    if (!BN_bin2bn(static_cast<const unsigned char*>(attribute->pValue),
                   static_cast<int>(attribute->ulValueLen), bn.get())) {
        throw std::bad_alloc();
    }
    return bn;
}

SecretBuffer to_bytes(const BIGNUM* bn) {
    SecretBuffer bytes(static_cast<std::size_t>(BN_num_bytes(bn)));
    BN_bn2bin(bn, bytes.data());
    return bytes;
}

}  // namespace

CK_RV complete_rsa_private_key(AttributeTemplate& key) {
    if (key.find(CKA_PRIVATE_EXPONENT)) return CKR_OK;
    const Bn p = from_attribute(key, CKA_PRIME_1);
    const Bn q = from_attribute(key, CKA_PRIME_2);
    const Bn e = from_attribute(key, CKA_PUBLIC_EXPONENT);
    const Bn n = from_attribute(key, CKA_MODULUS);
    if (!p || !q || !e || !n) return CKR_OK;

    std::unique_ptr<BN_CTX, BnCtxFree> ctx(BN_CTX_secure_new());
    if (!ctx) throw std::bad_alloc();
    Bn product = secure_bn(), p1 = secure_bn(), q1 = secure_bn(), gcd = secure_bn(),
       lambda = secure_bn(), d = secure_bn();
    if (!BN_mul(product.get(), p.get(), q.get(), ctx.get())) throw std::bad_alloc();
    if (BN_cmp(product.get(), n.get()) != 0 || BN_is_one(p.get()) || BN_is_one(q.get())) {
        return CKR_ATTRIBUTE_VALUE_INVALID;
    }
    // d = e^-1 mod lcm(p-1, q-1), the smallest private exponent.
    if (!BN_sub(p1.get(), p.get(), BN_value_one()) || !BN_sub(q1.get(), q.get(), BN_value_one()) ||
        !BN_gcd(gcd.get(), p1.get(), q1.get(), ctx.get()) ||
        !BN_mul(lambda.get(), p1.get(), q1.get(), ctx.get()) ||
        !BN_div(lambda.get(), nullptr, lambda.get(), gcd.get(), ctx.get())) {
        throw std::bad_alloc();
    }
    if (!BN_mod_inverse(d.get(), e.get(), lambda.get(), ctx.get())) {
        ERR_clear_error();
        return CKR_ATTRIBUTE_VALUE_INVALID;
    }
    key.set(CKA_PRIVATE_EXPONENT, to_bytes(d.get()));

    if (!key.find(CKA_EXPONENT_1)) {
        Bn dp = secure_bn();
        if (!BN_mod(dp.get(), d.get(), p1.get(), ctx.get())) throw std::bad_alloc();
        key.set(CKA_EXPONENT_1, to_bytes(dp.get()));
    }
    if (!key.find(CKA_EXPONENT_2)) {
        Bn dq = secure_bn();
        if (!BN_mod(dq.get(), d.get(), q1.get(), ctx.get())) throw std::bad_alloc();
        key.set(CKA_EXPONENT_2, to_bytes(dq.get()));
    }
    if (!key.find(CKA_COEFFICIENT)) {
        Bn qinv = secure_bn();
        if (!BN_mod_inverse(qinv.get(), q.get(), p.get(), ctx.get())) {
            ERR_clear_error();
            return CKR_ATTRIBUTE_VALUE_INVALID;
        }
        key.set(CKA_COEFFICIENT, to_bytes(qinv.get()));
    }
    return CKR_OK;
}

}  // namespace quelm
