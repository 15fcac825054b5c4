// UTF-16 text as it crosses the provider interface: wchar_t on Windows,
// char16_t elsewhere, so that one code unit is always two bytes.
#pragma once

#include <string>
#include <string_view>

namespace platform {

#ifdef _WIN32
using WideChar = wchar_t;
#define WIDE(s) L##s
#else
using WideChar = char16_t;
#define WIDE(s) u##s
#endif

static_assert(sizeof(WideChar) == 2, "UTF-16 code units");

using WideString = std::basic_string<WideChar>;
using WideView = std::basic_string_view<WideChar>;

// A null pointer reads as the empty string, as the interface treats it.
inline WideView ViewOf(const WideChar* text) {
    return text ? WideView(text) : WideView();
}

}  // namespace platform
