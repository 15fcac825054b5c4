#include <memory>

#include "keys/key_context.h"
#include "provider/handle_registry.h"
#include "provider/operation_frame.h"
#include "provider/operations.h"
#include "provider/provider_context.h"

namespace quelmksp {

SECURITY_STATUS FreeKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey) {
    OperationFrame frame("QUELMKSPFreeKey", {{"hProvider", hProvider}, {"hKey", hKey}});
    QUELMKSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider) return frame.Fail(NTE_INVALID_HANDLE, "pProvider is NULL");
    if (!KeyFromHandle(hKey, provider)) return frame.Fail(NTE_INVALID_HANDLE, "pKey is NULL");
    g_pHandles->Remove(reinterpret_cast<void*>(hKey), HandleKind::kKey);
    std::unique_ptr<QUELMKSP_KEY> key(reinterpret_cast<QUELMKSP_KEY*>(hKey));

    // The token objects stay: a key handle only names them.
    if (key->pszKeyName) frame.Line("Deleting key name");
    if (key->hPublicKey) frame.Line("Deleting public key handle");
    key->hPublicKey = 0;
    if (key->hPrivateKey) frame.Line("Deleting private key handle");
    key->hPrivateKey = 0;
    if (key->pbPrivateKeyBlob) frame.Line("Deleting private key blob");
    DeleteKeyObject(*key);
    return frame.Exit(ERROR_SUCCESS);
}

}  // namespace quelmksp
