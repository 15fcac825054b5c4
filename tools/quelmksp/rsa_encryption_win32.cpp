// windows.h first: bcrypt.h needs its types.
#include <windows.h>

#include <bcrypt.h>

#include <cstring>

#include "client_error.h"
#include "rsa_encryption.h"

namespace {

class KeyHandles {
public:
    ~KeyHandles() {
        if (key) BCryptDestroyKey(key);
        if (algorithm) BCryptCloseAlgorithmProvider(algorithm, 0);
    }
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    BCRYPT_KEY_HANDLE key = nullptr;
};

SecretBytes PublicBlob(const RsaPublicKey& key) {
    BCRYPT_RSAKEY_BLOB header{BCRYPT_RSAPUBLIC_MAGIC,
                              static_cast<ULONG>(key.modulus.size() * 8),
                              static_cast<ULONG>(key.exponent.size()),
                              static_cast<ULONG>(key.modulus.size()),
                              0,
                              0};
    SecretBytes blob(sizeof header);
    std::memcpy(blob.data(), &header, sizeof header);
    blob.insert(blob.end(), key.exponent.begin(), key.exponent.end());
    blob.insert(blob.end(), key.modulus.begin(), key.modulus.end());
    return blob;
}

}  // namespace

SecretBytes Pkcs1Encrypt(const RsaPublicKey& key, const SecretBytes& message) {
    KeyHandles handles;
    SecretBytes blob = PublicBlob(key);
    SecretBytes input = message;
    ULONG length = 0;
    bool done =
        BCRYPT_SUCCESS(
            BCryptOpenAlgorithmProvider(&handles.algorithm, BCRYPT_RSA_ALGORITHM, nullptr, 0)) &&
        BCRYPT_SUCCESS(BCryptImportKeyPair(handles.algorithm, nullptr, BCRYPT_RSAPUBLIC_BLOB,
                                           &handles.key, blob.data(),
                                           static_cast<ULONG>(blob.size()), 0)) &&
        BCRYPT_SUCCESS(BCryptEncrypt(handles.key, input.data(), static_cast<ULONG>(input.size()),
                                     nullptr, nullptr, 0, nullptr, 0, &length, BCRYPT_PAD_PKCS1));
    SecretBytes ciphertext(length);
    done = done && BCRYPT_SUCCESS(BCryptEncrypt(
                       handles.key, input.data(), static_cast<ULONG>(input.size()), nullptr,
                       nullptr, 0, ciphertext.data(), length, &length, BCRYPT_PAD_PKCS1));
    if (!done) throw ClientError(exit_code::kData, "BCrypt could not encrypt with the key");
    ciphertext.resize(length);
    return ciphertext;
}
