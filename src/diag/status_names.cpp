#include "diag/status_names.h"

#include <cstdio>

#include "provider/ncrypt_provider.h"

namespace {

struct NamedStatus {
    int32_t status;
    const char* name;
};

constexpr NamedStatus kNames[] = {
    {ERROR_SUCCESS, "ERROR_SUCCESS"},
    {NTE_BAD_DATA, "NTE_BAD_DATA"},
    {NTE_BAD_SIGNATURE, "NTE_BAD_SIGNATURE"},
    {NTE_BAD_FLAGS, "NTE_BAD_FLAGS"},
    {NTE_BAD_KEY_STATE, "NTE_BAD_KEY_STATE"},
    {NTE_NO_MEMORY, "NTE_NO_MEMORY"},
    {NTE_EXISTS, "NTE_EXISTS"},
    {NTE_PERM, "NTE_PERM"},
    {NTE_NOT_FOUND, "NTE_NOT_FOUND"},
    {NTE_BAD_KEYSET, "NTE_BAD_KEYSET"},
    {NTE_PROVIDER_DLL_FAIL, "NTE_PROVIDER_DLL_FAIL"},
    {NTE_FAIL, "NTE_FAIL"},
    {NTE_INVALID_HANDLE, "NTE_INVALID_HANDLE"},
    {NTE_INVALID_PARAMETER, "NTE_INVALID_PARAMETER"},
    {NTE_BUFFER_TOO_SMALL, "NTE_BUFFER_TOO_SMALL"},
    {NTE_NOT_SUPPORTED, "NTE_NOT_SUPPORTED"},
    {NTE_NO_MORE_ITEMS, "NTE_NO_MORE_ITEMS"},
    {NTE_INTERNAL_ERROR, "NTE_INTERNAL_ERROR"},
    {SCARD_E_CANCELLED, "SCARD_E_CANCELLED"},
    {SCARD_W_WRONG_CHV, "SCARD_W_WRONG_CHV"},
    {SCARD_W_CHV_BLOCKED, "SCARD_W_CHV_BLOCKED"},
    {SCARD_W_CANCELLED_BY_USER, "SCARD_W_CANCELLED_BY_USER"},
    {ERROR_CANCELLED, "ERROR_CANCELLED"},
    {static_cast<int32_t>(STATUS_INVALID_PARAMETER), "STATUS_INVALID_PARAMETER"},
};

}  // namespace

const char* StatusName(int32_t status) {
    for (const NamedStatus& named : kNames)
        if (named.status == status) return named.name;
    thread_local char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<uint32_t>(status));
    return text;
}
