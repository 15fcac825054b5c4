// An RSA public key for OpenSSL from its big-endian modulus and exponent,
// for tests that check the token's work with an independent implementation.
#pragma once

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>

#include <cstddef>
#include <cstdint>

// Null when OpenSSL refuses the values; the caller frees the key.
inline EVP_PKEY* OpenSslRsaPublicKey(const uint8_t* modulus, size_t modulusLength,
                                     const uint8_t* exponent, size_t exponentLength) {
    BIGNUM* n = BN_bin2bn(modulus, static_cast<int>(modulusLength), nullptr);
    BIGNUM* e = BN_bin2bn(exponent, static_cast<int>(exponentLength), nullptr);
    OSSL_PARAM_BLD* build = OSSL_PARAM_BLD_new();
    OSSL_PARAM_BLD_push_BN(build, OSSL_PKEY_PARAM_RSA_N, n);
    OSSL_PARAM_BLD_push_BN(build, OSSL_PKEY_PARAM_RSA_E, e);
    OSSL_PARAM* params = OSSL_PARAM_BLD_to_param(build);
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr);
    EVP_PKEY* key = nullptr;
    if (EVP_PKEY_fromdata_init(context) != 1 ||
        EVP_PKEY_fromdata(context, &key, EVP_PKEY_PUBLIC_KEY, params) != 1)
        key = nullptr;
    EVP_PKEY_CTX_free(context);
    OSSL_PARAM_free(params);
    OSSL_PARAM_BLD_free(build);
    BN_free(e);
    BN_free(n);
    return key;
}
