#include <openssl/core_names.h>
#include <openssl/param_build.h>

#include <limits>

#include "crypto_objects_openssl.h"

BioPtr NewWipedMemoryBio() {
    return BioPtr(BIO_new(BIO_s_secmem()));
}

SecretBytes BioContents(BIO* bio) {
    char* data = nullptr;
    long size = BIO_get_mem_data(bio, &data);
    if (size <= 0 || !data) return {};
    return SecretBytes(data, data + size);
}

BioPtr ReadingBio(const SecretBytes& bytes) {
    if (bytes.size() > static_cast<size_t>(std::numeric_limits<int>::max())) return nullptr;
    return BioPtr(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

EvpPkeyPtr NewRsaPublicKey(const RsaPublicKey& key) {
    BignumPtr modulus(BN_bin2bn(key.modulus.data(), static_cast<int>(key.modulus.size()), nullptr));
    BignumPtr exponent(
        BN_bin2bn(key.exponent.data(), static_cast<int>(key.exponent.size()), nullptr));
    std::unique_ptr<OSSL_PARAM_BLD, OpenSslDeleter<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free>> builder(
        OSSL_PARAM_BLD_new());
    if (!modulus || !exponent || !builder ||
        !OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, modulus.get()) ||
        !OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, exponent.get()))
        return nullptr;
    std::unique_ptr<OSSL_PARAM, OpenSslDeleter<OSSL_PARAM, OSSL_PARAM_free>> params(
        OSSL_PARAM_BLD_to_param(builder.get()));
    std::unique_ptr<EVP_PKEY_CTX, OpenSslDeleter<EVP_PKEY_CTX, EVP_PKEY_CTX_free>> context(
        EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
    EVP_PKEY* pkey = nullptr;
    if (!params || !context || EVP_PKEY_fromdata_init(context.get()) <= 0 ||
        EVP_PKEY_fromdata(context.get(), &pkey, EVP_PKEY_PUBLIC_KEY, params.get()) <= 0)
        return nullptr;
    return EvpPkeyPtr(pkey);
}

std::optional<RsaPublicKey> RsaPublicKeyOf(const EVP_PKEY* pkey) {
    if (!pkey || !EVP_PKEY_is_a(pkey, "RSA")) return std::nullopt;
    BIGNUM* modulus = nullptr;
    BIGNUM* exponent = nullptr;
    bool read = EVP_PKEY_get_bn_param(pkey, OSSL_PKEY_PARAM_RSA_N, &modulus) &&
                EVP_PKEY_get_bn_param(pkey, OSSL_PKEY_PARAM_RSA_E, &exponent);
    BignumPtr ownedModulus(modulus);
    BignumPtr ownedExponent(exponent);
    if (!read) return std::nullopt;
    SecretBytes modulusBytes(static_cast<size_t>(BN_num_bytes(modulus)));
    SecretBytes exponentBytes(static_cast<size_t>(BN_num_bytes(exponent)));
    BN_bn2bin(modulus, modulusBytes.data());
    BN_bn2bin(exponent, exponentBytes.data());
    return MakeRsaPublicKey(exponentBytes.data(), exponentBytes.size(), modulusBytes.data(),
                            modulusBytes.size());
}
