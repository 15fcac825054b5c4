#include "token_identity.h"

#include <algorithm>
#include <cstring>

namespace quelm {

std::string unpadded(const CK_UTF8CHAR* field, std::size_t size) {
    std::size_t length = size;
    while (length && (field[length - 1] == ' ' || field[length - 1] == '\0')) --length;
    return std::string(reinterpret_cast<const char*>(field), length);
}

void write_padded(CK_UTF8CHAR* field, std::size_t size, const std::string& text) {
    std::size_t length = std::min(size, text.size());
    if (length < text.size()) {
        while (length && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) --length;
    }
    std::memset(field, ' ', size);
    std::memcpy(field, text.data(), length);
}

std::string token_key(const CK_TOKEN_INFO& info) {
    std::string key = unpadded(info.serialNumber, sizeof info.serialNumber);
    if (key.empty()) key = "label:" + unpadded(info.label, sizeof info.label);
    // The counter file is line-based.
    std::replace_if(
        key.begin(), key.end(), [](char c) { return c == '\n' || c == '\r'; }, '?');
    return key;
}

}  // namespace quelm
