#include <openssl/evp.h>

#include <memory>

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

}  // namespace

std::vector<uint8_t> Hash(HashAlgorithm algorithm, const uint8_t* data, size_t size) {
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                    &EVP_MD_CTX_free);
    std::vector<uint8_t> hash(EVP_MAX_MD_SIZE);
    unsigned int length = 0;
    if (!context || !EVP_DigestInit_ex(context.get(), Digest(algorithm), nullptr) ||
        !EVP_DigestUpdate(context.get(), data, size) ||
        !EVP_DigestFinal_ex(context.get(), hash.data(), &length))
        throw ClientError(exit_code::kProvider, "OpenSSL could not hash the data");
    hash.resize(length);
    return hash;
}
