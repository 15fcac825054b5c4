#include "platform/text.h"

#include <windows.h>

namespace platform {

std::string ToAnsi(WideView text, size_t maxBytes) {
    if (text.empty() || maxBytes == 0) return {};
    int length = static_cast<int>(text.size());
    int needed = WideCharToMultiByte(CP_ACP, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string out(static_cast<size_t>(needed > 0 ? needed : 0), '\0');
    if (needed > 0)
        WideCharToMultiByte(CP_ACP, 0, text.data(), length, out.data(), needed, nullptr, nullptr);
    if (out.size() > maxBytes) out.resize(maxBytes);
    return out;
}

WideString FromAnsi(std::string_view bytes) {
    if (bytes.empty()) return {};
    int length = static_cast<int>(bytes.size());
    int needed = MultiByteToWideChar(CP_ACP, 0, bytes.data(), length, nullptr, 0);
    WideString out(static_cast<size_t>(needed > 0 ? needed : 0), L'\0');
    if (needed > 0) MultiByteToWideChar(CP_ACP, 0, bytes.data(), length, out.data(), needed);
    return out;
}

}  // namespace platform
