// The hash functions the provider signs with, and hashing data with them
// as it is read, so that a file of any size takes the same memory. Each
// platform hashes with its own library (OpenSSL on Linux, CNG's BCrypt on
// Windows); CMake picks the implementation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

enum class HashAlgorithm { kMd5, kSha1, kSha256, kSha384, kSha512 };

class Hasher {
public:
    // Throws ClientError when the platform's library fails.
    explicit Hasher(HashAlgorithm algorithm);
    ~Hasher();
    Hasher(const Hasher&) = delete;
    Hasher& operator=(const Hasher&) = delete;

    void Update(const uint8_t* data, size_t size);
    std::vector<uint8_t> Finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

// Throws ClientError when the platform's library fails.
std::vector<uint8_t> Hash(HashAlgorithm algorithm, const uint8_t* data, size_t size);

// The hash of a file ("-" or empty: stdin), read a block at a time. Throws
// ClientError (exit_code::kData) when it cannot be read.
std::vector<uint8_t> HashFile(HashAlgorithm algorithm, const std::string& path);
