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

[[noreturn]] void Failed() {
    throw ClientError(exit_code::kProvider, "BCrypt could not hash the data");
}

}  // namespace

struct Hasher::State {
    ~State() {
        if (hash) BCryptDestroyHash(hash);
        if (provider) BCryptCloseAlgorithmProvider(provider, 0);
    }
    BCRYPT_ALG_HANDLE provider = nullptr;
    BCRYPT_HASH_HANDLE hash = nullptr;
    DWORD length = 0;
};

Hasher::Hasher(HashAlgorithm algorithm) : state_(std::make_unique<State>()) {
    ULONG got = 0;
    if (!BCRYPT_SUCCESS(BCryptOpenAlgorithmProvider(&state_->provider, BCryptAlgorithm(algorithm),
                                                    nullptr, 0)) ||
        !BCRYPT_SUCCESS(BCryptGetProperty(state_->provider, BCRYPT_HASH_LENGTH,
                                          reinterpret_cast<PUCHAR>(&state_->length),
                                          sizeof state_->length, &got, 0)) ||
        !BCRYPT_SUCCESS(
            BCryptCreateHash(state_->provider, &state_->hash, nullptr, 0, nullptr, 0, 0)))
        Failed();
}

Hasher::~Hasher() = default;

void Hasher::Update(const uint8_t* data, size_t size) {
    // BCryptHashData takes at most a ULONG at a time.
    while (size > 0) {
        ULONG chunk = size > 0x40000000 ? 0x40000000 : static_cast<ULONG>(size);
        if (!BCRYPT_SUCCESS(BCryptHashData(state_->hash, const_cast<PUCHAR>(data), chunk, 0)))
            Failed();
        data += chunk;
        size -= chunk;
    }
}

std::vector<uint8_t> Hasher::Finish() {
    std::vector<uint8_t> value(state_->length);
    if (!BCRYPT_SUCCESS(BCryptFinishHash(state_->hash, value.data(), state_->length, 0))) Failed();
    return value;
}
