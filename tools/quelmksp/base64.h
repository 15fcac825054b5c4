// Base64 for signatures and ciphertexts that pass through text: OpenSSL on
// Linux, CryptBinaryToString on Windows; CMake picks the implementation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "secret_bytes.h"

// One line, no line breaks.
std::string Base64Encode(const uint8_t* data, size_t size);

// Accepts line breaks and blanks between the characters; nullopt when the
// text is not base64.
std::optional<SecretBytes> Base64Decode(std::string_view text);
