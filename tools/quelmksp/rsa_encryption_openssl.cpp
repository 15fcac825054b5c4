#include <openssl/err.h>
#include <openssl/rsa.h>

#include "client_error.h"
#include "crypto_objects_openssl.h"
#include "rsa_encryption.h"

SecretBytes Pkcs1Encrypt(const RsaPublicKey& key, const SecretBytes& message) {
    EvpPkeyPtr pkey = NewRsaPublicKey(key);
    std::unique_ptr<EVP_PKEY_CTX, OpenSslDeleter<EVP_PKEY_CTX, EVP_PKEY_CTX_free>> context(
        pkey ? EVP_PKEY_CTX_new_from_pkey(nullptr, pkey.get(), nullptr) : nullptr);
    size_t length = 0;
    bool done =
        context && EVP_PKEY_encrypt_init(context.get()) > 0 &&
        EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) > 0 &&
        EVP_PKEY_encrypt(context.get(), nullptr, &length, message.data(), message.size()) > 0;
    SecretBytes ciphertext(length);
    done = done && EVP_PKEY_encrypt(context.get(), ciphertext.data(), &length, message.data(),
                                    message.size()) > 0;
    ERR_clear_error();
    if (!done) throw ClientError(exit_code::kData, "OpenSSL could not encrypt with the key");
    ciphertext.resize(length);
    return ciphertext;
}
