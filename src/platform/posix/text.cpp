#include "platform/text.h"

#include <algorithm>

namespace platform {

std::string ToAnsi(WideView text, size_t maxBytes) {
    std::string out;
    out.reserve(std::min(text.size(), maxBytes));
    for (WideChar c : text) {
        if (out.size() >= maxBytes) break;
        out.push_back(c <= 0xFF ? static_cast<char>(c) : '?');
    }
    return out;
}

WideString FromAnsi(std::string_view bytes) {
    WideString out;
    out.reserve(bytes.size());
    for (char b : bytes) out.push_back(static_cast<unsigned char>(b));
    return out;
}

}  // namespace platform
