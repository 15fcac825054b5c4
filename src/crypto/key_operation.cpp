#include "crypto/key_operation.h"

#include <new>

#include "pin/login.h"
#include "token/cryptoki_library.h"

SECURITY_STATUS CheckKeyHandles(OperationFrame& frame, NCRYPT_PROV_HANDLE hProvider,
                                NCRYPT_KEY_HANDLE hKey, QUELMKSP_PROVIDER** provider,
                                QUELMKSP_KEY** key) {
    *provider = ProviderFromHandle(hProvider);
    if (!*provider) return frame.Fail(NTE_INVALID_HANDLE, "pProvider is NULL");
    *key = KeyFromHandle(hKey, *provider);
    if (!*key) return frame.Fail(NTE_INVALID_HANDLE, "pKey is NULL");
    return ERROR_SUCCESS;
}

SECURITY_STATUS LogInForOperation(OperationFrame& frame, QUELMKSP_PROVIDER& provider) {
    SECURITY_STATUS status = Login(&provider);
    if (status != ERROR_SUCCESS) {
        frame.Line("Failed to login. Operation aborted.");
        return frame.Exit(status);
    }
    return ERROR_SUCCESS;
}

std::unique_ptr<RSAPair> PairOnSession(const QUELMKSP_PROVIDER& provider, const QUELMKSP_KEY& key) {
    std::unique_ptr<RSAPair> pair(new (std::nothrow) RSAPair());
    if (!pair) return nullptr;
    pair->pCryptoki = g_pCryptoki;
    pair->hSession = provider.hSession;
    pair->dwModulusBits = key.dwBitLength;
    return pair;
}
