#include "hashing.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "client_error.h"
#include "platform/secure_zero.h"

std::vector<uint8_t> Hash(HashAlgorithm algorithm, const uint8_t* data, size_t size) {
    Hasher hasher(algorithm);
    hasher.Update(data, size);
    return hasher.Finish();
}

std::vector<uint8_t> HashFile(HashAlgorithm algorithm, const std::string& path) {
    const bool fromStdin = path.empty() || path == "-";
    const std::string shown = fromStdin ? std::string("stdin") : "'" + path + "'";
    std::FILE* file = fromStdin ? stdin : std::fopen(path.c_str(), "rb");
    if (!file)
        throw ClientError(exit_code::kData, "cannot open " + shown + ": " + std::strerror(errno));
    struct Closer {
        std::FILE* file;
        bool owned;
        ~Closer() {
            if (owned) std::fclose(file);
        }
    } closer{file, !fromStdin};
    Hasher hasher(algorithm);
    uint8_t block[65536];
    size_t got = 0;
    while ((got = std::fread(block, 1, sizeof block, file)) > 0) hasher.Update(block, got);
    const bool failed = std::ferror(file) != 0;
    const int error = errno;
    platform::SecureZero(block, sizeof block);
    if (failed)
        throw ClientError(exit_code::kData, "cannot read " + shown + ": " + std::strerror(error));
    return hasher.Finish();
}
