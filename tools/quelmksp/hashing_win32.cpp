// windows.h first: bcrypt.h needs its types.
#include <windows.h>

#include <bcrypt.h>

#include "client_error.h"
#include "hashing.h"

namespace {

LPCWSTR BCryptAlgorithm(HashAlgorithm algorithm) {
    switch (algorithm) {
        case HashAlgorithm::kMd5:
            return BCRYPT_MD5_ALGORITHM;
        case HashAlgorithm::kSha1:
            return BCRYPT_SHA1_ALGORITHM;
        case HashAlgorithm::kSha256:
            return BCRYPT_SHA256_ALGORITHM;
        case HashAlgorithm::kSha384:
            return BCRYPT_SHA384_ALGORITHM;
        case HashAlgorithm::kSha512:
            return BCRYPT_SHA512_ALGORITHM;
    }
    return nullptr;
}

class AlgorithmHandle {
public:
    ~AlgorithmHandle() {
        if (handle) BCryptCloseAlgorithmProvider(handle, 0);
    }
    BCRYPT_ALG_HANDLE handle = nullptr;
};

class HashHandle {
public:
    ~HashHandle() {
        if (handle) BCryptDestroyHash(handle);
    }
    BCRYPT_HASH_HANDLE handle = nullptr;
};

}  // namespace

std::vector<uint8_t> Hash(HashAlgorithm algorithm, const uint8_t* data, size_t size) {
    AlgorithmHandle provider;
    HashHandle hash;
    DWORD length = 0;
    ULONG got = 0;
    bool ok =
        BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(&provider.handle, BCryptAlgorithm(algorithm),
                                                   nullptr, 0)) &&
        BCRYPT_SUCCESS(BCryptGetProperty(provider.handle, BCRYPT_HASH_LENGTH,
                                         reinterpret_cast<PUCHAR>(&length), sizeof length, &got,
                                         0)) &&
        BCRYPT_SUCCESS(BCryptCreateHash(provider.handle, &hash.handle, nullptr, 0, nullptr, 0, 0));
    std::vector<uint8_t> value(ok ? length : 0);
    // BCryptHashData takes at most a ULONG at a time.
    while (ok && size > 0) {
        ULONG chunk = size > 0x40000000 ? 0x40000000 : static_cast<ULONG>(size);
        ok = BCRYPT_SUCCESS(BCryptHashData(hash.handle, const_cast<PUCHAR>(data), chunk, 0));
        data += chunk;
        size -= chunk;
    }
    if (!ok || !BCRYPT_SUCCESS(BCryptFinishHash(hash.handle, value.data(), length, 0)))
        throw ClientError(exit_code::kProvider, "BCrypt could not hash the data");
    return value;
}
