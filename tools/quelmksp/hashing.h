// The hash functions the provider signs with, and hashing data with them.
// Each platform hashes with its own library (OpenSSL on Linux, CNG's BCrypt
// on Windows); CMake picks the implementation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

enum class HashAlgorithm { kMd5, kSha1, kSha256, kSha384, kSha512 };

// Throws ClientError when the platform's library fails.
std::vector<uint8_t> Hash(HashAlgorithm algorithm, const uint8_t* data, size_t size);
