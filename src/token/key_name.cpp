#include "token/key_name.h"

#include "diag/debug_class.h"
#include "platform/last_error.h"

namespace {

// Widens each byte to the UTF-16 unit of the same value, up to the first
// zero byte.
platform::WideString Widen(const uint8_t* bytes, uint32_t length) {
    platform::WideString name;
    for (uint32_t i = 0; i < length && bytes[i] != 0; ++i)
        name.push_back(static_cast<platform::WideChar>(bytes[i]));
    return name;
}

int HexDigit(platform::WideChar c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

platform::WideChar FoldAsciiCase(platform::WideChar c) {
    return (c >= 'a' && c <= 'z') ? static_cast<platform::WideChar>(c - 'a' + 'A') : c;
}

}  // namespace

SECURITY_STATUS ConvertIdToKeyName(const uint8_t* id, uint32_t idLength, const uint8_t* label,
                                   uint32_t labelLength, platform::WideString* name) {
    if (id) {
        if (idLength == 0) {
            g_pTokenLog->WriteLine(
                "NTE_INVALID_PARAMETER: non-null CKA_ID with zero-length buffer was provided.");
            return NTE_INVALID_PARAMETER;
        }
        g_pTokenLog->WriteLine("Converting CKA_ID to key name...");
        g_pTokenLog->WriteBytes("CKA_ID: ", id, idLength);
        *name = Widen(id, idLength);
        g_pTokenLog->WriteWide("KeyName: ", name->c_str());
    } else {
        g_pTokenLog->WriteLine("CKA_ID is not found. Checking label...");
        if (!label) {
            g_pTokenLog->WriteLine(
                "NTE_INVALID_PARAMETER: CKA_ID and label is not provided. Impossible to create "
                "valid key name.");
            return NTE_INVALID_PARAMETER;
        }
        g_pTokenLog->WriteLine("Converting CKA_LABEL to widestring key name");
        *name = Widen(label, labelLength);
    }
    g_pTokenLog->WriteLine("Done");
    return ERROR_SUCCESS;
}

platform::WideString HexToKeyName(platform::WideView text) {
    if (text.size() % 2) {
        platform::SetLastError(static_cast<uint32_t>(NTE_INVALID_PARAMETER));
        return {};
    }
    platform::WideString name;
    for (size_t i = 0; i < text.size(); i += 2) {
        int high = HexDigit(text[i]);
        if (high < 0) {
            platform::SetLastError(static_cast<uint32_t>(NTE_INVALID_PARAMETER));
            return {};
        }
        // A second character that is not a digit ends the number: "4G" is 4.
        int low = HexDigit(text[i + 1]);
        int value = low < 0 ? high : high * 16 + low;
        if (value != 0) name.push_back(static_cast<platform::WideChar>(value));
    }
    return name;
}

bool SelectsKeyName(platform::WideView given, platform::WideView keyName) {
    if (given.size() < keyName.size()) return false;
    for (size_t i = 0; i < keyName.size(); ++i)
        if (FoldAsciiCase(given[i]) != FoldAsciiCase(keyName[i])) return false;
    return true;
}
