#include <cstring>
#include <optional>
#include <vector>

#include "provider/certificate_stores.h"
#include "provider/operation_frame.h"
#include "provider/operations.h"
#include "provider/property_name.h"
#include "provider/provider_context.h"
#include "provider/result_length.h"

namespace quelmksp {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr DWORD kImplType =
    NCRYPT_IMPL_HARDWARE_FLAG | NCRYPT_IMPL_REMOVABLE_FLAG | NCRYPT_IMPL_HARDWARE_RNG_FLAG;
constexpr DWORD kMaxNameLength = 64;
constexpr DWORD kVersion = 0x01000100;
constexpr DWORD kHandleBytes = 8;

Bytes DwordValue(uint32_t value) {
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

Bytes WideValue(const platform::WideChar* text) {
    platform::WideView view = platform::ViewOf(text);
    Bytes bytes((view.size() + 1) * sizeof(platform::WideChar), 0);
    std::memcpy(bytes.data(), view.data(), view.size() * sizeof(platform::WideChar));
    return bytes;
}

// A property's length, and how its value is made once a buffer is there.
struct ProviderValue {
    DWORD length;
    std::optional<StoreKind> store;
    Bytes fixed;
};

// The properties, in the order they are looked up; nothing when the name is
// none of them.
std::optional<ProviderValue> Lookup(platform::WideView name, const QUELMKSP_PROVIDER& provider) {
    auto fixed = [](Bytes bytes) {
        DWORD length = static_cast<DWORD>(bytes.size());
        return ProviderValue{length, std::nullopt, std::move(bytes)};
    };
    if (name == NCRYPT_IMPL_TYPE_PROPERTY) return fixed(DwordValue(kImplType));
    if (name == NCRYPT_MAX_NAME_LENGTH_PROPERTY) return fixed(DwordValue(kMaxNameLength));
    if (name == NCRYPT_NAME_PROPERTY) return fixed(WideValue(provider.pszName));
    if (name == NCRYPT_VERSION_PROPERTY) return fixed(DwordValue(kVersion));
    if (name == NCRYPT_USE_CONTEXT_PROPERTY)
        return fixed(
            WideValue(reinterpret_cast<const platform::WideChar*>(provider.pszContext.get())));
    if (name == NCRYPT_SECURITY_DESCR_SUPPORT_PROPERTY) return fixed(DwordValue(0));
    if (name == NCRYPT_ROOT_CERTSTORE_PROPERTY)
        return ProviderValue{kHandleBytes, StoreKind::kRoot, {}};
    if (name == NCRYPT_USER_CERTSTORE_PROPERTY)
        return ProviderValue{kHandleBytes, StoreKind::kUser, {}};
    if (name == NCRYPT_SMARTCARD_GUID_PROPERTY) return fixed(Bytes(8, 0));
    return std::nullopt;
}

}  // namespace

SECURITY_STATUS GetProviderProperty(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty,
                                    PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult,
                                    DWORD dwFlags) {
    OperationFrame frame("QUELMKSPGetProviderProperty", {{"hProvider", hProvider},
                                                         {"pszProperty", pszProperty},
                                                         {"pbOutput", pbOutput},
                                                         {"cbOutput", cbOutput},
                                                         {"pcbResult", pcbResult},
                                                         {"dwFlags", dwFlags}});
    ResultLength result(pcbResult);
    QUELMKSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider) return frame.Fail(NTE_INVALID_HANDLE, "pProvider is NULL");
    if (!pszProperty) return frame.Fail(NTE_INVALID_PARAMETER, "pszProperty is NULL");
    if (!pcbResult) return frame.Fail(NTE_INVALID_PARAMETER, "pcbResult is NULL");
    if (PropertyNameTooLong(pszProperty))
        return frame.Fail(NTE_INVALID_PARAMETER,
                          "pszProperty length is greater than NCRYPT_MAX_PROPERTY_NAME");
    if (dwFlags & ~NCRYPT_SILENT_FLAG)
        return frame.Fail(NTE_BAD_FLAGS, "Only NCRYPT_SILENT_FLAG is an acceptable value");

    platform::WideView name(pszProperty);
    std::optional<ProviderValue> value = Lookup(name, *provider);
    if (!value) return frame.Fail(NTE_NOT_SUPPORTED, "pszProperty is not supported");
    if (name == NCRYPT_USE_CONTEXT_PROPERTY && !provider->pszContext)
        return frame.Exit(NTE_INTERNAL_ERROR);
    result.value = value->length;
    if (!pbOutput) {
        frame.Line("pbOutput is NULL, property length query succeeded.");
        return frame.Exit(ERROR_SUCCESS);
    }
    if (cbOutput < value->length)
        return frame.Fail(NTE_BUFFER_TOO_SMALL, "cbOutput is less than cbResult");
    if (value->store) {
        // A failed build is no failure of the operation: the caller gets a
        // null store.
        uint64_t handle =
            reinterpret_cast<uintptr_t>(BuildCertificateStore(*provider, *value->store));
        std::memcpy(pbOutput, &handle, sizeof handle);
    } else {
        std::memcpy(pbOutput, value->fixed.data(), value->fixed.size());
    }
    return frame.Exit(ERROR_SUCCESS);
}

}  // namespace quelmksp
