#include <memory>
#include <new>

#include "keys/key_creation.h"
#include "keys/key_finalization.h"
#include "pin/login.h"
#include "provider/operation_frame.h"
#include "provider/operations.h"
#include "token/cryptoki_library.h"
#include "token/rsa_pair.h"

namespace quelmksp {
namespace {

constexpr DWORD kFinalizeFlags =
    NCRYPT_NO_KEY_VALIDATION | NCRYPT_SILENT_FLAG | NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG;

// The old pair goes only when the new one is about to be made; its
// certificate object stays on the token.
SECURITY_STATUS DestroyOverwrittenPair(OperationFrame& frame, const QUELMKSP_PROVIDER& provider,
                                       QUELMKSP_KEY& key) {
    CK_FUNCTION_LIST& token = *g_pCryptoki->functions();
    frame.Line("Overwrite flag is set.");
    if (token.C_DestroyObject(provider.hSession, key.hPrivateKey) != CKR_OK)
        return frame.Fail(NTE_INTERNAL_ERROR,
                          "Private key deletion failed. Check PKCS logs for more information.");
    if (token.C_DestroyObject(provider.hSession, key.hPublicKey) != CKR_OK)
        return frame.Fail(NTE_INTERNAL_ERROR,
                          "Public key deletion failed. Check PKCS logs for more information.");
    // The token may give these handles to new objects: a second attempt
    // after a failed generation must not destroy those.
    key.fOverwrite = 0;
    key.hPrivateKey = 0;
    key.hPublicKey = 0;
    return ERROR_SUCCESS;
}

SECURITY_STATUS GenerateOnToken(OperationFrame& frame, const QUELMKSP_PROVIDER& provider,
                                QUELMKSP_KEY& key, const TokenLabel& label) {
    std::unique_ptr<RSAPair> pair(new (std::nothrow) RSAPair());
    if (!pair) return frame.Exit(NTE_NO_MEMORY);
    pair->SetGenerationDefaults();
    pair->hSession = provider.hSession;
    pair->pCryptoki = g_pCryptoki;
    pair->dwModulusBits = key.dwBitLength;
    // A key without a name lives only as long as the session.
    pair->bToken = key.KeyName() ? CK_TRUE : CK_FALSE;

    frame.Line("Generating key pair");
    int32_t status = pair->GenerateKeyPair(label.bytes);
    if (status != ERROR_SUCCESS) {
        frame.log().WriteHex("NTE_INTERNAL_ERROR: GenerateKeyPair failed - ",
                             static_cast<uint32_t>(status));
        return frame.Exit(NTE_INTERNAL_ERROR);
    }
    frame.log().WriteHex("Bit length: ", key.dwBitLength);
    key.hPublicKey = pair->hPublicKey;
    key.hPrivateKey = pair->hPrivateKey;
    return ERROR_SUCCESS;
}

}  // namespace

SECURITY_STATUS FinalizeKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, DWORD dwFlags) {
    OperationFrame frame("QUELMKSPFinalizeKey",
                         {{"hProvider", hProvider}, {"hKey", hKey}, {"dwFlags", dwFlags}});
    QUELMKSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider) return frame.Fail(NTE_INVALID_HANDLE, "pProvider is NULL");
    QUELMKSP_KEY* key = KeyFromHandle(hKey, provider);
    if (!key) return frame.Fail(NTE_INVALID_HANDLE, "pKey is NULL");
    if (dwFlags & ~kFinalizeFlags)
        return frame.Fail(NTE_BAD_FLAGS,
                          "Only NCRYPT_NO_KEY_VALIDATION, NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG, "
                          "and NCRYPT_SILENT_FLAG are acceptable flags.");
    frame.Line("Checking if key is not yet finalized");
    if (key->fFinished) return frame.Exit(NTE_BAD_KEY_STATE);
    // Refused before the login and the overwrite, so that a name the token
    // cannot carry costs the user neither a PIN entry nor the old pair.
    std::optional<TokenLabel> label = LabelForKey(*key);
    if (!label)
        return frame.Fail(NTE_INVALID_PARAMETER,
                          "The key name does not fit in a token label of 62 characters");

    SECURITY_STATUS status = Login(provider);
    if (status != ERROR_SUCCESS) {
        frame.Line("Failed to login. Operation aborted");
        return frame.Exit(status);
    }

    frame.Line("Checking if overwrite flag is set");
    if (key->fOverwrite) {
        if (SECURITY_STATUS destroyed = DestroyOverwrittenPair(frame, *provider, *key))
            return destroyed;
    }

    status = key->pbPrivateKeyBlob ? FinalizeImportedKey(frame, *provider, *key, *label)
                                   : GenerateOnToken(frame, *provider, *key, *label);
    if (status != ERROR_SUCCESS) return status;
    key->fFinished = 1;
    return frame.Exit(ERROR_SUCCESS);
}

}  // namespace quelmksp
