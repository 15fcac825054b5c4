// Conversions between UTF-16 and narrow text.
//
// The "ANSI code page" is the byte encoding in which the token sees labels,
// identifiers made from key names and the PIN. On Windows it is the system
// code page; on Linux it is ISO-8859-1, so that a byte widened to one UTF-16
// unit converts back to the same byte.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/wide_string.h"

namespace platform {

// Converts to the ANSI code page. Characters it cannot represent become '?'.
// At most maxBytes bytes are produced.
std::string ToAnsi(WideView text, size_t maxBytes = std::string::npos);

// Widens ANSI code page bytes to UTF-16.
WideString FromAnsi(std::string_view bytes);

// UTF-8 is what file names and terminals use on Linux. Invalid input becomes
// U+FFFD and clears *valid when given.
std::string ToUtf8(WideView text);
WideString FromUtf8(std::string_view bytes, bool* valid = nullptr);

}  // namespace platform
