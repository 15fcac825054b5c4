#include "crypto/key_operation.h"
#include "provider/operations.h"

namespace quelmksp {
namespace {

constexpr DWORD kSignFlags = NCRYPT_PAD_PKCS1_FLAG | NCRYPT_PAD_PSS_FLAG | NCRYPT_SILENT_FLAG;

}  // namespace

SECURITY_STATUS SignHash(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, void* pPaddingInfo,
                         PBYTE pbHashValue, DWORD cbHashValue, PBYTE pbSignature, DWORD cbSignature,
                         DWORD* pcbResult, DWORD dwFlags) {
    OperationFrame frame("QUELMKSPSignHash", {{"hProvider", hProvider},
                                              {"hKey", hKey},
                                              {"pPaddingInfo", pPaddingInfo},
                                              {"pbHashValue", pbHashValue},
                                              {"cbHashValue", cbHashValue},
                                              {"pbSignature", pbSignature},
                                              {"cbSignature", cbSignature},
                                              {"pcbResult", pcbResult},
                                              {"dwFlags", dwFlags}});
    QUELMKSP_PROVIDER* provider = nullptr;
    QUELMKSP_KEY* key = nullptr;
    if (SECURITY_STATUS status = CheckKeyHandles(frame, hProvider, hKey, &provider, &key))
        return status;
    if (!pbHashValue) return frame.Fail(NTE_INVALID_PARAMETER, "pbHashValue is NULL");
    if (!pcbResult) return frame.Fail(NTE_INVALID_PARAMETER, "pcbResult is NULL");
    if (dwFlags & ~kSignFlags) return frame.Fail(NTE_BAD_FLAGS, kBadFlags);
    if (dwFlags & NCRYPT_PAD_PSS_FLAG)
        return frame.Fail(NTE_NOT_SUPPORTED, "PSS padding scheme is currently not supported.");
    if (!(key->dwKeyUsage & NCRYPT_ALLOW_SIGNING_FLAG))
        return frame.Fail(NTE_PERM, "The key usage policy does not allow signing");
    if (!key->fFinished) return frame.Fail(NTE_BAD_KEY_STATE, kNotFinalized);
    if (SECURITY_STATUS status = LogInForOperation(frame, *provider)) return status;

    std::unique_ptr<RSAPair> pair = PairOnSession(*provider, *key);
    if (!pair) return frame.Exit(NTE_NO_MEMORY);
    pair->hPrivateKey = key->hPrivateKey;
    frame.log().WriteBytes("Hash\t\t: ", pbHashValue, cbHashValue);
    // With a buffer the token fills a copy of its size; without one it only
    // reports the length.
    CK_ULONG length = pbSignature ? cbSignature : *pcbResult;
    SECURITY_STATUS status = pair->SignData(pbHashValue, cbHashValue, pbSignature, &length);
    if (status != ERROR_SUCCESS)
        frame.Line("Signing failed. Check PKCS logs for detailed information");
    *pcbResult = static_cast<DWORD>(length);
    if (!pbSignature) frame.log().WriteHex("pbSignature is NULL. Signature length: ", *pcbResult);
    if (status == ERROR_SUCCESS && pbSignature)
        frame.log().WriteBytes("Signature\t\t: ", pbSignature, *pcbResult);
    return frame.Exit(status);
}

}  // namespace quelmksp
