#include "key_name_text.h"

#include <cstdio>

#include "platform/text.h"

namespace {

std::string Escaped(unsigned unit) {
    char text[8];
    std::snprintf(text, sizeof text, unit <= 0xFF ? "\\x%02X" : "\\u%04X", unit);
    return text;
}

}  // namespace

std::string ReadableKeyName(platform::WideView name) {
    // Trailing blanks would be invisible.
    size_t visibleEnd = name.find_last_not_of(WIDE(' ')) + 1;
    std::string readable;
    for (size_t i = 0; i < name.size(); ++i) {
        platform::WideChar c = name[i];
        auto unit = static_cast<unsigned>(c);
        if (unit == ' ' && i >= visibleEnd)
            readable += Escaped(unit);
        else if (unit == '\\')
            readable += "\\\\";
        else if (unit >= 0x20 && unit < 0x7F)
            readable.push_back(static_cast<char>(unit));
        else if (unit >= 0xA1 && unit <= 0xFF)
            readable += platform::ToUtf8(platform::WideView(&c, 1));
        else
            readable += Escaped(unit);
    }
    return readable;
}

std::string HexKeyName(platform::WideView name) {
    std::string hex;
    for (platform::WideChar c : name) {
        char pair[8];
        std::snprintf(pair, sizeof pair, "%02X", static_cast<unsigned>(c));
        hex += pair;
    }
    return hex;
}
