#include <cstring>
#include <memory>

#include "keys/key_context.h"
#include "provider/caller_buffer.h"
#include "provider/operation_frame.h"
#include "provider/operations.h"
#include "provider/provider_context.h"
#include "token/cryptoki_library.h"
#include "token/object_list.h"

namespace quelmksp {
namespace {

// Where an enumeration stands: the index in the object list of the next
// entry to look at. The caller releases it through FreeBuffer.
struct QUELMKSP_ENUM_STATE {
    uint32_t dwIndex;
};

constexpr platform::WideChar kRsa[] = WIDE("RSA");

// The record, its name and "RSA" in one block, so that one FreeBuffer
// releases all of it.
NCryptKeyName* NewKeyNameRecord(platform::WideView name) {
    size_t nameBytes = (name.size() + 1) * sizeof(platform::WideChar);
    auto* record = static_cast<NCryptKeyName*>(
        AllocateCallerBuffer(sizeof(NCryptKeyName) + nameBytes + sizeof kRsa));
    if (!record) return nullptr;
    auto* text = reinterpret_cast<platform::WideChar*>(record + 1);
    std::memcpy(text, name.data(), name.size() * sizeof(platform::WideChar));
    record->pszName = text;
    record->pszAlgid = text + name.size() + 1;
    std::memcpy(record->pszAlgid, kRsa, sizeof kRsa);
    record->dwLegacyKeySpec = 0;
    record->dwFlags = 0;
    return record;
}

// One enumeration step. Keys that have only a public key object are never
// listed: there is nothing a caller could do with them.
SECURITY_STATUS ReadKeyNameFromKeyObjectList(TraceFrame& frame, const QUELMKSP_PROVIDER& provider,
                                             QUELMKSP_ENUM_STATE** state, NCryptKeyName** keyName) {
    if (!*state) {
        *state = static_cast<QUELMKSP_ENUM_STATE*>(
            AllocateCallerBuffer(sizeof **state, HandleKind::kEnumState));
        if (!*state) return NTE_NO_MEMORY;
    }
    uint32_t& index = (*state)->dwIndex;
    while (index < provider.cObjectList && provider.pObjectList[index].hPrivateKey == 0) ++index;
    if (index >= provider.cObjectList) {
        frame.Line("NTE_NO_MORE_ITEMS");
        return NTE_NO_MORE_ITEMS;
    }
    frame.log().WriteHex("EnumState index = ", index);
    const QUELMKSP_KEY& entry = provider.pObjectList[index];
    *keyName = NewKeyNameRecord(platform::ViewOf(entry.pszKeyName.get()));
    if (!*keyName) return NTE_NO_MEMORY;
    frame.log().WriteWide("KeyName = ", (*keyName)->pszName);
    ++index;
    return ERROR_SUCCESS;
}

SECURITY_STATUS Step(TraceFrame& frame, const QUELMKSP_PROVIDER& provider,
                     QUELMKSP_ENUM_STATE** state, NCryptKeyName** keyName) {
    frame.Line("ReadKeyNameFromKeyObjectList - Entry");
    SECURITY_STATUS status = ReadKeyNameFromKeyObjectList(frame, provider, state, keyName);
    frame.Line("ReadKeyNameFromKeyObjectList - Exit");
    return status;
}

}  // namespace

SECURITY_STATUS EnumKeys(NCRYPT_PROV_HANDLE hProvider, LPCWSTR, NCryptKeyName** ppKeyName,
                         PVOID* ppEnumState, DWORD dwFlags) {
    // The scope is not used, and the log says so whatever the caller passed.
    OperationFrame frame("QUELMKSPEnumKeys",
                         {{"hProvider", hProvider},
                          {"pszScope", static_cast<const platform::WideChar*>(nullptr)},
                          {"ppKeyName", ppKeyName},
                          {"ppEnumState", ppEnumState},
                          {"dwFlags", dwFlags}});
    QUELMKSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider) return frame.Fail(NTE_INVALID_HANDLE, "pProvider == NULL ");
    if (!ppKeyName || !ppEnumState)
        return frame.Fail(NTE_INVALID_PARAMETER, "ppKeyName == NULL || ppEnumState == NULL ");
    if (dwFlags & ~(NCRYPT_MACHINE_KEY_FLAG | NCRYPT_SILENT_FLAG))
        return frame.Fail(NTE_BAD_FLAGS,
                          "((dwFlags & ~(NCRYPT_MACHINE_KEY_FLAG | NCRYPT_SILENT_FLAG)) != 0) ");
    if (dwFlags & NCRYPT_MACHINE_KEY_FLAG)
        return frame.Fail(NTE_NOT_SUPPORTED, " (dwFlags & NCRYPT_MACHINE_KEY_FLAG) ");

    auto* state = static_cast<QUELMKSP_ENUM_STATE*>(*ppEnumState);
    if (state && !g_pHandles->Contains(state, HandleKind::kEnumState))
        return frame.Fail(NTE_INVALID_HANDLE, "ppEnumState is not a live enumeration state");
    bool newEnumeration = state == nullptr;
    if (newEnumeration) {
        frame.Line("EnumState is null");
        SECURITY_STATUS status = InitializeObjectList(*provider, *g_pCryptoki);
        if (status != ERROR_SUCCESS) {
            frame.log().WriteHex("LoadTokenKeys error ", static_cast<uint32_t>(status));
            return frame.Exit(status);
        }
    } else {
        frame.Line("EnumState is initialized");
    }

    NCryptKeyName* keyName = nullptr;
    SECURITY_STATUS status = Step(frame, *provider, &state, &keyName);
    // A state made by this call is the caller's only once a name goes with
    // it; until then it is released on the way out.
    std::unique_ptr<QUELMKSP_ENUM_STATE, CallerBufferRelease> made(newEnumeration ? state
                                                                                  : nullptr);
    if (status != ERROR_SUCCESS) return frame.Exit(status);
    made.release();
    *ppKeyName = keyName;
    *ppEnumState = state;
    return frame.Exit(ERROR_SUCCESS);
}

}  // namespace quelmksp
