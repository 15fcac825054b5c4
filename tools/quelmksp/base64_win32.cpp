#include <windows.h>

#include <wincrypt.h>

#include "base64.h"

std::string Base64Encode(const uint8_t* data, size_t size) {
    const DWORD flags = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCRLF;
    DWORD length = 0;
    if (!CryptBinaryToStringA(data, static_cast<DWORD>(size), flags, nullptr, &length)) return {};
    std::string text(length, '\0');
    if (!CryptBinaryToStringA(data, static_cast<DWORD>(size), flags, text.data(), &length))
        return {};
    text.resize(length);
    return text;
}

std::optional<SecretBytes> Base64Decode(std::string_view text) {
    DWORD length = 0;
    const DWORD size = static_cast<DWORD>(text.size());
    if (!CryptStringToBinaryA(text.data(), size, CRYPT_STRING_BASE64, nullptr, &length, nullptr,
                              nullptr))
        return std::nullopt;
    SecretBytes bytes(length);
    if (!CryptStringToBinaryA(text.data(), size, CRYPT_STRING_BASE64, bytes.data(), &length,
                              nullptr, nullptr))
        return std::nullopt;
    bytes.resize(length);
    return bytes;
}
