// The --hash option of sign and verify, and what it tells the provider.
#pragma once

#include "command_line.h"
#include "hashing.h"
#include "provider/ncrypt_provider.h"

// md5, sha1, sha256 or sha512 in any case; sha256 when the option is left
// out. Throws UsageError for another name.
HashAlgorithm HashOption(const ParsedCommand& parsed);

// The algorithm's CNG identifier, as a caller puts it in the padding
// information of a PKCS#1 signature.
LPCWSTR CngAlgorithmId(HashAlgorithm algorithm);
