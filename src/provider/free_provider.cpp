#include <memory>

#include "keys/key_context.h"
#include "provider/handle_registry.h"
#include "provider/operation_frame.h"
#include "provider/operations.h"
#include "provider/provider_context.h"
#include "token/cryptoki_library.h"
#include "token/object_list.h"

namespace quelmksp {

SECURITY_STATUS FreeProvider(NCRYPT_PROV_HANDLE hProvider) {
    OperationFrame frame("QUELMKSPFreeProvider", {{"hProvider", hProvider}});
    QUELMKSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider) return frame.Fail(NTE_INVALID_HANDLE, "pProvider is NULL");

    // Each member is released once: a record left behind by a failed close
    // can be freed again without releasing anything twice.
    frame.Line("Deleting PIN cache");
    provider->pbPin.reset();
    provider->cchPin = 0;
    frame.Line("Deleting key object list");
    DiscardObjectList(*provider);
    frame.Line("Deleting KSP name");
    provider->pszName = nullptr;
    frame.Line("Deleting provider context");
    provider->pszContext.reset();
    frame.Line("Deleting reader name");
    provider->pszReaderName.reset();

    frame.Line("Closing cryptographic session");
    if (g_pCryptoki->functions()->C_CloseSession(provider->hSession) != CKR_OK)
        return frame.Fail(NTE_INTERNAL_ERROR, "An internal error occured");
    // Keys the caller never freed go with their provider, so that a later
    // provider at the same address can never adopt them.
    for (void* key : g_pHandles->RemoveKeysOf(provider)) {
        std::unique_ptr<QUELMKSP_KEY> record(static_cast<QUELMKSP_KEY*>(key));
        DeleteKeyObject(*record);
    }
    g_pHandles->Remove(provider, HandleKind::kProvider);
    ProviderRecord(provider).reset();
    return frame.Exit(ERROR_SUCCESS);
}

}  // namespace quelmksp
