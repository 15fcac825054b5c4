#include <memory>
#include <new>

#include "keys/key_context.h"
#include "provider/handle_registry.h"
#include "provider/operation_frame.h"
#include "provider/operations.h"
#include "provider/provider_context.h"
#include "token/object_list.h"

namespace quelmksp {
namespace {

constexpr DWORD AT_KEYEXCHANGE = 1;
constexpr DWORD AT_SIGNATURE = 2;

// Callers may name a key with the reader in front, as "<reader><sep><key>":
// whatever comes before the reader's name is ignored and the one character
// after it is skipped, whatever it is.
platform::WideString ParseKeyName(TraceFrame& frame, const QUELMKSP_PROVIDER& provider,
                                  platform::WideView given) {
    frame.Line("Parsing key name...");
    platform::WideView reader = platform::ViewOf(provider.pszReaderName.get());
    size_t position = reader.empty() ? platform::WideView::npos : given.find(reader);
    if (position == platform::WideView::npos) return platform::WideString(given);

    frame.log().WriteWide("Reader name found on key name: ", provider.pszReaderName.get());
    frame.log().WriteWide("wstrKeyID: ", platform::WideString(given).c_str());
    frame.log().WriteHex("ReaderName length: ", static_cast<uint32_t>(reader.size()));
    frame.log().WriteHex("Position: ", static_cast<uint32_t>(position));
    size_t start = position + reader.size() + 1;
    return start < given.size() ? platform::WideString(given.substr(start))
                                : platform::WideString();
}

}  // namespace

SECURITY_STATUS OpenKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey, LPCWSTR pszKeyName,
                        DWORD dwLegacyKeySpec, DWORD dwFlags) {
    OperationFrame frame("QUELMKSPOpenKey", {{"hProvider", hProvider},
                                             {"phKey", phKey},
                                             {"pszKeyName", pszKeyName},
                                             {"dwLegacyKeySpec", dwLegacyKeySpec},
                                             {"dwFlags", dwFlags}});
    frame.SetExitLabel("QUELMKSPOpenKey - Exit");
    QUELMKSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider) return frame.Fail(NTE_INVALID_HANDLE, "pProvider is NULL");
    if (!phKey) return frame.Fail(NTE_INVALID_PARAMETER, "phKey is NULL");
    if (!pszKeyName) return frame.Fail(NTE_INVALID_PARAMETER, "pszKeyName is NULL");
    if (dwLegacyKeySpec & ~(AT_KEYEXCHANGE | AT_SIGNATURE))
        return frame.Fail(NTE_INVALID_PARAMETER,
                          "((dwLegacyKeySpec & ~(AT_KEYEXCHANGE | AT_SIGNATURE)) != 0) ");
    if (dwFlags & ~(NCRYPT_MACHINE_KEY_FLAG | NCRYPT_SILENT_FLAG))
        return frame.Fail(NTE_BAD_FLAGS,
                          "((dwFlags & ~(NCRYPT_MACHINE_KEY_FLAG | NCRYPT_SILENT_FLAG)) != 0) ");
    if (dwFlags & NCRYPT_MACHINE_KEY_FLAG)
        return frame.Fail(NTE_NOT_SUPPORTED, " (dwFlags & NCRYPT_MACHINE_KEY_FLAG) ");

    platform::WideString keyName = ParseKeyName(frame, *provider, pszKeyName);
    frame.Line("Retrieving key name");

    frame.Line("Initializing key object");
    std::unique_ptr<QUELMKSP_KEY> key(new (std::nothrow) QUELMKSP_KEY());
    if (!key) {
        frame.Line("Not enough memory to initialize key object");
        return frame.Exit(NTE_NO_MEMORY);
    }

    frame.Line("Find key with specified key name");
    SECURITY_STATUS status = FindQULMKSPKeyfromObjectList(*provider, keyName.c_str(), *key);
    if (status != ERROR_SUCCESS) return frame.Exit(status);
    if ((dwLegacyKeySpec & AT_KEYEXCHANGE) && key->hPublicKey == 0)
        return frame.Fail(NTE_BAD_KEYSET, "AT_KEYEXCHANGE key not found");
    if ((dwLegacyKeySpec & AT_SIGNATURE) && key->hPrivateKey == 0)
        return frame.Fail(NTE_BAD_KEYSET, "AT_SIGNATURE Key not found");

    g_pHandles->Add(key.get(), HandleKind::kKey, provider);
    *phKey = reinterpret_cast<NCRYPT_KEY_HANDLE>(key.release());
    frame.log().WriteHex("Key opened. Handle: ", Low32(*phKey));
    return frame.Exit(ERROR_SUCCESS);
}

}  // namespace quelmksp
