#include "provider_properties.h"

#include <cstdio>
#include <cstring>

#include "diag/status_names.h"
#include "json_text.h"
#include "platform/text.h"
#include "secret_bytes.h"

namespace {

enum class Kind { kDword, kFlags, kBool, kText, kBytes, kVersion };

struct Wanted {
    const char* name;
    LPCWSTR property;
    Kind kind;
};

const Wanted kWanted[] = {
    {"Name", NCRYPT_NAME_PROPERTY, Kind::kText},
    {"Version", NCRYPT_VERSION_PROPERTY, Kind::kVersion},
    {"Impl Type", NCRYPT_IMPL_TYPE_PROPERTY, Kind::kFlags},
    {"Max Name Length", NCRYPT_MAX_NAME_LENGTH_PROPERTY, Kind::kDword},
    {"Security Descr Support", NCRYPT_SECURITY_DESCR_SUPPORT_PROPERTY, Kind::kBool},
    {"SmartCardGuid", NCRYPT_SMARTCARD_GUID_PROPERTY, Kind::kBytes},
    {"Use Context", NCRYPT_USE_CONTEXT_PROPERTY, Kind::kText},
};

std::string Hex(const SecretBytes& bytes) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

std::string ImplTypeText(DWORD flags) {
    std::string text;
    auto add = [&](DWORD flag, const char* name) {
        if (flags & flag) text += text.empty() ? name : std::string(", ") + name;
    };
    add(NCRYPT_IMPL_HARDWARE_FLAG, "hardware");
    add(NCRYPT_IMPL_SOFTWARE_FLAG, "software");
    add(NCRYPT_IMPL_REMOVABLE_FLAG, "removable");
    add(NCRYPT_IMPL_HARDWARE_RNG_FLAG, "hardware RNG");
    char code[16];
    std::snprintf(code, sizeof code, "0x%X", static_cast<unsigned>(flags));
    return text.empty() ? code : text + " (" + code + ")";
}

ProviderProperty Describe(const Wanted& wanted, const SecretBytes& value) {
    DWORD number = 0;
    if (value.size() == sizeof number) std::memcpy(&number, value.data(), sizeof number);
    const bool isDword = value.size() == sizeof number;
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%08X", static_cast<unsigned>(number));
    switch (wanted.kind) {
        case Kind::kDword:
            if (isDword) return {wanted.name, std::to_string(number), std::to_string(number)};
            break;
        case Kind::kFlags:
            if (isDword) return {wanted.name, ImplTypeText(number), std::to_string(number)};
            break;
        case Kind::kBool:
            if (isDword) return {wanted.name, number ? "yes" : "no", number ? "true" : "false"};
            break;
        case Kind::kVersion:
            if (isDword) return {wanted.name, hex, std::to_string(number)};
            break;
        case Kind::kText:
            if (value.size() % 2 == 0) {
                std::basic_string<platform::WideChar> wide(value.size() / 2, 0);
                std::memcpy(wide.data(), value.data(), value.size());
                while (!wide.empty() && wide.back() == 0) wide.pop_back();
                const std::string text = platform::ToUtf8(wide);
                return {wanted.name, text, JsonString(text)};
            }
            break;
        case Kind::kBytes:
            return {wanted.name, Hex(value), JsonString(Hex(value))};
    }
    const std::string odd = "(" + std::to_string(value.size()) + " bytes: " + Hex(value) + ")";
    return {wanted.name, odd, JsonString(odd)};
}

}  // namespace

std::vector<ProviderProperty> ReadProviderProperties(const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table,
                                                     NCRYPT_PROV_HANDLE provider) {
    std::vector<ProviderProperty> properties;
    for (const Wanted& wanted : kWanted) {
        DWORD length = 0;
        SECURITY_STATUS status =
            table.GetProviderProperty(provider, wanted.property, nullptr, 0, &length, 0);
        SecretBytes value(length);
        if (status == ERROR_SUCCESS && length > 0)
            status = table.GetProviderProperty(provider, wanted.property, value.data(), length,
                                               &length, 0);
        // The provider answers this for a use context that nobody set.
        if (status == NTE_INTERNAL_ERROR && std::strcmp(wanted.name, "Use Context") == 0) {
            properties.push_back({wanted.name, "(not set)", "null"});
            continue;
        }
        if (status != ERROR_SUCCESS) {
            const std::string text = std::string("? (") + StatusName(status) + ")";
            properties.push_back({wanted.name, text, "null"});
            continue;
        }
        value.resize(length);
        properties.push_back(Describe(wanted, value));
    }
    return properties;
}
