#include "hash_option.h"

#include <algorithm>
#include <cctype>
#include <string>

#include "client_error.h"

std::string HashName(HashAlgorithm algorithm) {
    switch (algorithm) {
        case HashAlgorithm::kMd5:
            return "md5";
        case HashAlgorithm::kSha1:
            return "sha1";
        case HashAlgorithm::kSha256:
            return "sha256";
        case HashAlgorithm::kSha384:
            return "sha384";
        case HashAlgorithm::kSha512:
            return "sha512";
    }
    return "";
}

namespace {

// "md5, sha1 or sha256"
std::string ListOf(std::initializer_list<HashAlgorithm> offered) {
    std::string list;
    size_t index = 0;
    for (HashAlgorithm algorithm : offered) {
        if (index > 0) list += index + 1 == offered.size() ? " or " : ", ";
        list += HashName(algorithm);
        ++index;
    }
    return list;
}

}  // namespace

HashAlgorithm HashOption(const ParsedCommand& parsed, std::initializer_list<HashAlgorithm> offered,
                         HashAlgorithm fallback) {
    std::string name = parsed.Value("--hash", HashName(fallback));
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (HashAlgorithm algorithm : offered)
        if (name == HashName(algorithm)) return algorithm;
    throw UsageError("unknown hash '" + parsed.Value("--hash", "") + "': use " + ListOf(offered));
}

LPCWSTR CngAlgorithmId(HashAlgorithm algorithm) {
    switch (algorithm) {
        case HashAlgorithm::kMd5:
            return QKSP_TEXT("MD5");
        case HashAlgorithm::kSha1:
            return QKSP_TEXT("SHA1");
        case HashAlgorithm::kSha256:
            return QKSP_TEXT("SHA256");
        case HashAlgorithm::kSha384:
            return QKSP_TEXT("SHA384");
        case HashAlgorithm::kSha512:
            return QKSP_TEXT("SHA512");
    }
    return nullptr;
}
