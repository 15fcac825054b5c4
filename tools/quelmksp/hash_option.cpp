#include "hash_option.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <string>

#include "client_error.h"

namespace {

std::optional<HashAlgorithm> Named(const std::string& name) {
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (lower == "md5") return HashAlgorithm::kMd5;
    if (lower == "sha1") return HashAlgorithm::kSha1;
    if (lower == "sha256") return HashAlgorithm::kSha256;
    if (lower == "sha512") return HashAlgorithm::kSha512;
    return std::nullopt;
}

}  // namespace

HashAlgorithm HashOption(const ParsedCommand& parsed) {
    std::string name = parsed.Value("--hash", "sha256");
    std::optional<HashAlgorithm> algorithm = Named(name);
    if (!algorithm)
        throw UsageError("unknown hash '" + name + "': use md5, sha1, sha256 or sha512");
    return *algorithm;
}

LPCWSTR CngAlgorithmId(HashAlgorithm algorithm) {
    switch (algorithm) {
        case HashAlgorithm::kMd5:
            return QKSP_TEXT("MD5");
        case HashAlgorithm::kSha1:
            return QKSP_TEXT("SHA1");
        case HashAlgorithm::kSha256:
            return QKSP_TEXT("SHA256");
        case HashAlgorithm::kSha512:
            return QKSP_TEXT("SHA512");
    }
    return nullptr;
}
