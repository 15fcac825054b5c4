#include <openssl/evp.h>

#include "client_error.h"
#include "hashing.h"

namespace {

const EVP_MD* Digest(HashAlgorithm algorithm) {
    switch (algorithm) {
        case HashAlgorithm::kMd5:
            return EVP_md5();
        case HashAlgorithm::kSha1:
            return EVP_sha1();
        case HashAlgorithm::kSha256:
            return EVP_sha256();
        case HashAlgorithm::kSha384:
            return EVP_sha384();
        case HashAlgorithm::kSha512:
            return EVP_sha512();
    }
    return nullptr;
}

[[noreturn]] void Failed() {
    throw ClientError(exit_code::kProvider, "OpenSSL could not hash the data");
}

}  // namespace

struct Hasher::State {
    ~State() { EVP_MD_CTX_free(context); }
    EVP_MD_CTX* context = nullptr;
};

Hasher::Hasher(HashAlgorithm algorithm) : state_(std::make_unique<State>()) {
    state_->context = EVP_MD_CTX_new();
    if (!state_->context || !EVP_DigestInit_ex(state_->context, Digest(algorithm), nullptr))
        Failed();
}

Hasher::~Hasher() = default;

void Hasher::Update(const uint8_t* data, size_t size) {
    if (!EVP_DigestUpdate(state_->context, data, size)) Failed();
}

std::vector<uint8_t> Hasher::Finish() {
    std::vector<uint8_t> hash(EVP_MAX_MD_SIZE);
    unsigned int length = 0;
    if (!EVP_DigestFinal_ex(state_->context, hash.data(), &length)) Failed();
    hash.resize(length);
    return hash;
}
