#include "platform/rsa_key_completion.h"

#include <openssl/bn.h>

#include <new>

#include <memory>

namespace platform {
namespace {

struct BnFree {
    void operator()(BIGNUM* number) const { BN_clear_free(number); }
};
using Bn = std::unique_ptr<BIGNUM, BnFree>;
struct BnCtxFree {
    void operator()(BN_CTX* context) const { BN_CTX_free(context); }
};

Bn Secret() {
    Bn number(BN_secure_new());
    if (number) BN_set_flags(number.get(), BN_FLG_CONSTTIME);
    return number;
}

Bn FromBytes(BigEndian value) {
    Bn number = Secret();
    if (number && !BN_bin2bn(value.bytes, static_cast<int>(value.length), number.get()))
        number.reset();
    return number;
}

bool ToBytes(const BIGNUM* number, size_t length, SecureBuffer<uint8_t>* out) {
    try {
        *out = SecureBuffer<uint8_t>(length);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return BN_bn2binpad(number, out->get(), static_cast<int>(length)) == static_cast<int>(length);
}

}  // namespace

bool CompleteRsaPrivateKey(BigEndian exponent, BigEndian modulus, BigEndian prime1,
                           BigEndian prime2, RsaPrivateValues* values) {
    std::unique_ptr<BN_CTX, BnCtxFree> context(BN_CTX_secure_new());
    Bn e = FromBytes(exponent), n = FromBytes(modulus), p = FromBytes(prime1),
       q = FromBytes(prime2);
    Bn product = Secret(), p1 = Secret(), q1 = Secret(), phi = Secret(), d = Secret(),
       dp = Secret(), dq = Secret(), qinv = Secret();
    if (!context || !e || !n || !p || !q || !product || !p1 || !q1 || !phi || !d || !dp || !dq ||
        !qinv)
        return false;
    if (!BN_mul(product.get(), p.get(), q.get(), context.get()) || BN_cmp(product.get(), n.get()))
        return false;
    if (!BN_sub(p1.get(), p.get(), BN_value_one()) || !BN_sub(q1.get(), q.get(), BN_value_one()) ||
        !BN_mul(phi.get(), p1.get(), q1.get(), context.get()) ||
        !BN_mod_inverse(d.get(), e.get(), phi.get(), context.get()) ||
        !BN_mod(dp.get(), d.get(), p1.get(), context.get()) ||
        !BN_mod(dq.get(), d.get(), q1.get(), context.get()) ||
        !BN_mod_inverse(qinv.get(), q.get(), p.get(), context.get()))
        return false;
    return ToBytes(d.get(), modulus.length, &values->privateExponent) &&
           ToBytes(dp.get(), prime1.length, &values->exponent1) &&
           ToBytes(dq.get(), prime2.length, &values->exponent2) &&
           ToBytes(qinv.get(), prime1.length, &values->coefficient);
}

}  // namespace platform
