#include <openssl/evp.h>

#include <cctype>

#include "base64.h"

std::string Base64Encode(const uint8_t* data, size_t size) {
    std::string text(4 * ((size + 2) / 3) + 1, '\0');
    int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), data,
                                 static_cast<int>(size));
    text.resize(length < 0 ? 0 : static_cast<size_t>(length));
    return text;
}

std::optional<SecretBytes> Base64Decode(std::string_view text) {
    SecretBytes compact;
    for (char c : text)
        if (!std::isspace(static_cast<unsigned char>(c)))
            compact.push_back(static_cast<uint8_t>(c));
    if (compact.size() % 4 != 0) return std::nullopt;
    // EVP_DecodeBlock decodes the padding as zero bytes; they are cut off below.
    size_t padding = 0;
    for (size_t i = compact.size(); i > 0 && compact[i - 1] == '=' && padding < 2; --i) ++padding;
    SecretBytes bytes(compact.size() / 4 * 3);
    int length = EVP_DecodeBlock(bytes.data(), compact.data(), static_cast<int>(compact.size()));
    if (length < 0) return std::nullopt;
    bytes.resize(static_cast<size_t>(length) - padding);
    return bytes;
}
