#include <cstring>
#include <memory>
#include <new>

#include "provider/operation_frame.h"
#include "provider/operations.h"
#include "provider/property_name.h"
#include "provider/provider_context.h"
#include "provider/window_handle.h"

namespace quelmksp {
namespace {

bool IsReadOnly(platform::WideView name) {
    for (const platform::WideChar* readOnly :
         {NCRYPT_IMPL_TYPE_PROPERTY, NCRYPT_MAX_NAME_LENGTH_PROPERTY,
          NCRYPT_SECURITY_DESCR_SUPPORT_PROPERTY, NCRYPT_VERSION_PROPERTY, NCRYPT_NAME_PROPERTY})
        if (name == readOnly) return true;
    return false;
}

// The context is kept in twice the input's size, zeroed, so that whatever
// the caller sent is followed by a wide terminator.
SECURITY_STATUS SetUseContext(OperationFrame& frame, QUELMKSP_PROVIDER& provider,
                              const uint8_t* input, DWORD length) {
    provider.pszContext.reset();
    size_t bytes = 2 * size_t{length};
    std::unique_ptr<uint8_t[]> context(new (std::nothrow)
                                           uint8_t[bytes + sizeof(platform::WideChar)]());
    if (!context) return frame.Exit(NTE_NO_MEMORY);
    std::memcpy(context.get(), input, length);
    provider.pszContext = std::move(context);
    return frame.Exit(ERROR_SUCCESS);
}

}  // namespace

SECURITY_STATUS SetProviderProperty(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty,
                                    PBYTE pbInput, DWORD cbInput, DWORD dwFlags) {
    OperationFrame frame("QUELMKSPSetProviderProperty", {{"hProvider", hProvider},
                                                         {"pszProperty", pszProperty},
                                                         {"pbInput", pbInput},
                                                         {"cbInput", cbInput},
                                                         {"dwFlags", dwFlags}});
    QUELMKSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider) return frame.Fail(NTE_INVALID_HANDLE, "pProvider is NULL");
    if (!pszProperty) return frame.Fail(NTE_INVALID_PARAMETER, "pszProperty is NULL");
    if (PropertyNameTooLong(pszProperty))
        return frame.Fail(NTE_INVALID_PARAMETER,
                          "The length of pszProperty is greater than NCRYPT_MAX_PROPERTY_NAME");
    if (!pbInput) return frame.Fail(NTE_INVALID_PARAMETER, "pbInput is NULL");
    if (dwFlags & NCRYPT_PERSIST_ONLY_FLAG)
        return frame.Fail(NTE_NOT_SUPPORTED, "NCRYPT_PERSIST_ONLY_FLAG is currently not supported");
    if (dwFlags & ~NCRYPT_SILENT_FLAG)
        return frame.Fail(NTE_BAD_FLAGS, "Only NCRYPT_SILENT_FLAG is currently supported");

    platform::WideView name(pszProperty);
    if (IsReadOnly(name))
        return frame.Fail(NTE_NOT_SUPPORTED, "The specified property is read-only");
    if (name == NCRYPT_USE_CONTEXT_PROPERTY)
        return SetUseContext(frame, *provider, pbInput, cbInput);
    if (name == NCRYPT_WINDOW_HANDLE_PROPERTY)
        return SetWindowHandle(frame, *provider, pbInput, cbInput);
    return frame.Fail(NTE_NOT_SUPPORTED, "pszProperty is not supported");
}

}  // namespace quelmksp
