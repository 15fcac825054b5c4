#include "crypto/key_operation.h"
#include "provider/operations.h"
#include "token/cryptoki_library.h"

namespace quelmksp {
namespace {

// No login: the token itself decides whether the session may destroy them.
bool DestroyOnToken(const QUELMKSP_PROVIDER& provider, CK_OBJECT_HANDLE object) {
    return object == 0 ||
           g_pCryptoki->functions()->C_DestroyObject(provider.hSession, object) == CKR_OK;
}

}  // namespace

SECURITY_STATUS DeleteKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, DWORD dwFlags) {
    OperationFrame frame("QUELMKSPDeleteKey",
                         {{"hProvider", hProvider}, {"hKey", hKey}, {"dwFlags", dwFlags}});
    QUELMKSP_PROVIDER* provider = nullptr;
    QUELMKSP_KEY* key = nullptr;
    if (SECURITY_STATUS status = CheckKeyHandles(frame, hProvider, hKey, &provider, &key))
        return status;
    if (dwFlags & ~NCRYPT_SILENT_FLAG)
        return frame.Fail(NTE_BAD_FLAGS, "Only NCRYPT_SILENT_FLAG is acceptable");

    // The private half first: a failure then never leaves a private key
    // without its public key.
    for (CK_OBJECT_HANDLE object : {key->hPrivateKey, key->hPublicKey}) {
        if (!DestroyOnToken(*provider, object))
            return frame.Fail(NTE_INTERNAL_ERROR,
                              "DestroyObject failed. Check PKCS logs for detailed information");
    }
    return frame.Exit(DeleteKeyObject(*key));
}

}  // namespace quelmksp
