// The --hash option, and what it tells the provider.
#pragma once

#include <initializer_list>
#include <string>

#include "command_line.h"
#include "hashing.h"
#include "provider/ncrypt_provider.h"

// The hashes sign and verify take: the provider signs only these lengths.
inline constexpr std::initializer_list<HashAlgorithm> kSignatureHashes = {
    HashAlgorithm::kMd5, HashAlgorithm::kSha1, HashAlgorithm::kSha256, HashAlgorithm::kSha512};

// One of offered by its name in any case ("sha256"), or fallback when the
// option is left out. Throws UsageError for another name.
HashAlgorithm HashOption(const ParsedCommand& parsed,
                         std::initializer_list<HashAlgorithm> offered = kSignatureHashes,
                         HashAlgorithm fallback = HashAlgorithm::kSha256);

// "sha256" and so on.
std::string HashName(HashAlgorithm algorithm);

// The algorithm's CNG identifier, as a caller puts it in the padding
// information of a PKCS#1 signature.
LPCWSTR CngAlgorithmId(HashAlgorithm algorithm);
