// Key names as a person reads them. A key's name is its CKA_ID widened byte
// by byte, so generated keys have names of binary characters; the
// hexadecimal form names the same key in plain digits.
#pragma once

#include <string>

#include "platform/wide_string.h"

// Printable ASCII as it is, Latin-1 letters as UTF-8, everything else (and
// the backslash) escaped as \xHH.
std::string ReadableKeyName(platform::WideView name);

// Two upper-case hexadecimal digits per character: the form the provider
// takes back as the key's name.
std::string HexKeyName(platform::WideView name);
