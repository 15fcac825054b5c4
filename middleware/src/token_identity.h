#pragma once

#include <cstddef>
#include <string>

#include <p11-kit/pkcs11.h>

namespace quelm {

// A blank-padded PKCS#11 text field without its padding.
std::string unpadded(const CK_UTF8CHAR* field, std::size_t size);

// Writes text into a blank-padded field, cut at a UTF-8 character boundary when it is too long.
void write_padded(CK_UTF8CHAR* field, std::size_t size, const std::string& text);

// The name under which a token's retry counter is kept: its serial, or its label for a token
// that has no serial.
std::string token_key(const CK_TOKEN_INFO& info);

}  // namespace quelm
