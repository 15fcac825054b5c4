#include "platform/text.h"

namespace platform {
namespace {

void AppendUtf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

void AppendUtf16(WideString& out, char32_t cp) {
    if (cp < 0x10000) {
        out.push_back(static_cast<WideChar>(cp));
    } else {
        cp -= 0x10000;
        out.push_back(static_cast<WideChar>(0xD800 | (cp >> 10)));
        out.push_back(static_cast<WideChar>(0xDC00 | (cp & 0x3FF)));
    }
}

constexpr char32_t kReplacement = 0xFFFD;

}  // namespace

std::string ToUtf8(WideView text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        char32_t c = static_cast<char16_t>(text[i]);
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size()) {
            char32_t low = static_cast<char16_t>(text[i + 1]);
            if (low >= 0xDC00 && low <= 0xDFFF) {
                AppendUtf8(out, 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00));
                ++i;
                continue;
            }
        }
        AppendUtf8(out, (c >= 0xD800 && c <= 0xDFFF) ? kReplacement : c);
    }
    return out;
}

WideString FromUtf8(std::string_view bytes, bool* valid) {
    WideString out;
    out.reserve(bytes.size());
    bool ok = true;
    for (size_t i = 0; i < bytes.size();) {
        unsigned char lead = static_cast<unsigned char>(bytes[i]);
        size_t length = lead < 0x80           ? 1
                        : (lead >> 5) == 0x6  ? 2
                        : (lead >> 4) == 0xE  ? 3
                        : (lead >> 3) == 0x1E ? 4
                                              : 0;
        char32_t cp = length == 1   ? lead
                      : length == 2 ? lead & 0x1F
                      : length == 3 ? lead & 0x0F
                                    : lead & 0x07;
        bool good = length != 0 && i + length <= bytes.size();
        for (size_t k = 1; good && k < length; ++k) {
            unsigned char next = static_cast<unsigned char>(bytes[i + k]);
            good = (next & 0xC0) == 0x80;
            cp = (cp << 6) | (next & 0x3F);
        }
        static constexpr char32_t kMinimum[] = {0, 0, 0x80, 0x800, 0x10000};
        good = good && cp >= kMinimum[length] && cp <= 0x10FFFF && !(cp >= 0xD800 && cp <= 0xDFFF);
        if (!good) {
            ok = false;
            AppendUtf16(out, kReplacement);
            ++i;
            continue;
        }
        AppendUtf16(out, cp);
        i += length;
    }
    if (valid) *valid = ok;
    return out;
}

}  // namespace platform
