#include "rsa_check.h"

#include <memory>

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>

#include "module_fixture.h"

namespace {

struct Free {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
    void operator()(EVP_PKEY_CTX* ctx) const { EVP_PKEY_CTX_free(ctx); }
    void operator()(BIGNUM* bn) const { BN_free(bn); }
    void operator()(OSSL_PARAM_BLD* bld) const { OSSL_PARAM_BLD_free(bld); }
    void operator()(OSSL_PARAM* params) const { OSSL_PARAM_free(params); }
};
template <class T>
using Owned = std::unique_ptr<T, Free>;

Bytes component(EVP_PKEY* key, const char* name) {
    BIGNUM* raw = nullptr;
    EVP_PKEY_get_bn_param(key, name, &raw);
    Owned<BIGNUM> bn(raw);
    Bytes bytes(BN_num_bytes(bn.get()));
    BN_bn2bin(bn.get(), bytes.data());
    return bytes;
}

}  // namespace

RsaComponents generate_rsa_components(int bits) {
    Owned<EVP_PKEY> key(EVP_RSA_gen(bits));
    return {component(key.get(), OSSL_PKEY_PARAM_RSA_N),
            component(key.get(), OSSL_PKEY_PARAM_RSA_E),
            component(key.get(), OSSL_PKEY_PARAM_RSA_FACTOR1),
            component(key.get(), OSSL_PKEY_PARAM_RSA_FACTOR2)};
}

bool verify_raw_pkcs1(const Bytes& modulus, const Bytes& exponent, const Bytes& data,
                      const Bytes& signature) {
    Owned<BIGNUM> n(BN_bin2bn(modulus.data(), modulus.size(), nullptr));
    Owned<BIGNUM> e(BN_bin2bn(exponent.data(), exponent.size(), nullptr));
    Owned<OSSL_PARAM_BLD> build(OSSL_PARAM_BLD_new());
    OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_N, n.get());
    OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_E, e.get());
    Owned<OSSL_PARAM> params(OSSL_PARAM_BLD_to_param(build.get()));
    Owned<EVP_PKEY_CTX> from_data(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
    EVP_PKEY* raw_key = nullptr;
    if (EVP_PKEY_fromdata_init(from_data.get()) <= 0 ||
        EVP_PKEY_fromdata(from_data.get(), &raw_key, EVP_PKEY_PUBLIC_KEY, params.get()) <= 0) {
        return false;
    }
    Owned<EVP_PKEY> key(raw_key);
    Owned<EVP_PKEY_CTX> verify(EVP_PKEY_CTX_new(key.get(), nullptr));
    return EVP_PKEY_verify_init(verify.get()) > 0 &&
           EVP_PKEY_CTX_set_rsa_padding(verify.get(), RSA_PKCS1_PADDING) > 0 &&
           EVP_PKEY_verify(verify.get(), signature.data(), signature.size(), data.data(),
                           data.size()) == 1;
}

Bytes read_attribute(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) {
    CK_ATTRIBUTE query{type, nullptr, 0};
    if (p11().C_GetAttributeValue(session, object, &query, 1) != CKR_OK) return {};
    Bytes value(query.ulValueLen);
    query.pValue = value.data();
    if (p11().C_GetAttributeValue(session, object, &query, 1) != CKR_OK) return {};
    return value;
}
