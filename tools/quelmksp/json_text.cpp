#include "json_text.h"

#include <cstdio>

std::string JsonString(const std::string& text) {
    std::string json = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            json += '\\';
            json += static_cast<char>(c);
        } else if (c < 0x20 || c == 0x7F) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04X", c);
            json += escaped;
        } else {
            json += static_cast<char>(c);
        }
    }
    return json + "\"";
}
