#include "crypto/key_operation.h"
#include "provider/operations.h"

namespace quelmksp {
namespace {

constexpr DWORD kVerifyFlags = NCRYPT_PAD_PKCS1_FLAG | NCRYPT_PAD_PSS_FLAG | NCRYPT_SILENT_FLAG;

}  // namespace

SECURITY_STATUS VerifySignature(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                void* pPaddingInfo, PBYTE pbHashValue, DWORD cbHashValue,
                                PBYTE pbSignature, DWORD cbSignature, DWORD dwFlags) {
    OperationFrame frame("QUELMKSPVerifySignature", {{"hProvider", hProvider},
                                                     {"hKey", hKey},
                                                     {"pPaddingInfo", pPaddingInfo},
                                                     {"pbHashValue", pbHashValue},
                                                     {"cbHashValue", cbHashValue},
                                                     {"pbSignature", pbSignature},
                                                     {"cbSignature", cbSignature},
                                                     {"dwFlags", dwFlags}});
    frame.SetExitLabel("QUELMKSPVerifySignature - Exit");
    QUELMKSP_PROVIDER* provider = nullptr;
    QUELMKSP_KEY* key = nullptr;
    if (SECURITY_STATUS status = CheckKeyHandles(frame, hProvider, hKey, &provider, &key))
        return status;
    if (!pbHashValue) return frame.Fail(NTE_INVALID_PARAMETER, "pbHashValue is NULL");
    if (!pbSignature) return frame.Fail(NTE_INVALID_PARAMETER, "pbSignature is NULL");
    if (dwFlags & ~kVerifyFlags) return frame.Fail(NTE_BAD_FLAGS, kBadFlags);
    if (dwFlags & NCRYPT_PAD_PSS_FLAG)
        return frame.Fail(NTE_NOT_SUPPORTED, "PSS padding scheme is currently not supported.");
    if (!key->fFinished) return frame.Fail(NTE_BAD_KEY_STATE, kNotFinalized);
    if (SECURITY_STATUS status = LogInForOperation(frame, *provider)) return status;

    std::unique_ptr<RSAPair> pair = PairOnSession(*provider, *key);
    if (!pair) return frame.Exit(NTE_NO_MEMORY);
    pair->hPublicKey = key->hPublicKey;
    SECURITY_STATUS status = pair->VerifyData(pbHashValue, cbHashValue, pbSignature, cbSignature);
    if (status != ERROR_SUCCESS)
        frame.Line("Verify failed. Check PKCS logs for detailed information");
    return frame.Exit(status);
}

}  // namespace quelmksp
