#include <cstring>
#include <memory>
#include <new>

#include "crypto/key_operation.h"
#include "keys/public_key_blob.h"
#include "provider/operations.h"

namespace quelmksp {
namespace {

enum class BlobKind { kPublic, kPrivate, kUnknown };

BlobKind KindOf(LPCWSTR blobType) {
    platform::WideView type = platform::ViewOf(blobType);
    if (!blobType) return BlobKind::kUnknown;
    if (type == BCRYPT_RSAPUBLIC_BLOB) return BlobKind::kPublic;
    if (type == BCRYPT_RSAPRIVATE_BLOB || type == WIDE("RSAFULLPRIVATEBLOB"))
        return BlobKind::kPrivate;
    return BlobKind::kUnknown;
}

}  // namespace

SECURITY_STATUS ExportKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                          NCRYPT_KEY_HANDLE hExportKey, LPCWSTR pszBlobType,
                          NCryptBufferDesc* pParameterList, PBYTE pbOutput, DWORD cbOutput,
                          DWORD* pcbResult, DWORD dwFlags) {
    OperationFrame frame("QUELMKSPExportKey", {{"hProvider", hProvider},
                                               {"hKey", hKey},
                                               {"hExportKey", hExportKey},
                                               {"pszBlobType", pszBlobType},
                                               {"pParameterList", pParameterList},
                                               {"pbOutput", pbOutput},
                                               {"cbOutput", cbOutput},
                                               {"pcbResult", pcbResult},
                                               {"dwFlags", dwFlags}});
    QUELMKSP_PROVIDER* provider = nullptr;
    QUELMKSP_KEY* key = nullptr;
    if (SECURITY_STATUS status = CheckKeyHandles(frame, hProvider, hKey, &provider, &key))
        return status;
    if (!pcbResult) return frame.Fail(NTE_INVALID_PARAMETER, "pcbResult is NULL");
    if (dwFlags & ~NCRYPT_SILENT_FLAG)
        return frame.Fail(NTE_BAD_FLAGS, "No flags are defined for this function.");
    if (!key->fFinished) return frame.Fail(NTE_BAD_KEY_STATE, "Key is not yet finalized");
    BlobKind kind = KindOf(pszBlobType);
    if (kind == BlobKind::kUnknown)
        return frame.Fail(NTE_NOT_SUPPORTED, "pszBlobType is not supported");
    if (hExportKey != 0)
        return frame.Fail(NTE_NOT_SUPPORTED, "Encryption of key blobs is not yet supported.");
    if (kind == BlobKind::kPrivate)
        return frame.Fail(NTE_NOT_SUPPORTED, "Exporting of private keys is not allowed");

    std::unique_ptr<PublicKeyBlob> blob(new (std::nothrow) PublicKeyBlob());
    if (!blob) return frame.Exit(NTE_NO_MEMORY);
    if (SECURITY_STATUS status = blob->ReadFromToken(provider->hSession, key->hPublicKey))
        return frame.Exit(status);
    uint32_t length = 0;
    blob->Serialize(nullptr, &length);
    if (!pbOutput) {
        frame.log().WriteHex("pbOutput is NULL. Querying key blob size... ", length);
        *pcbResult = length;
        return frame.Exit(ERROR_SUCCESS);
    }
    if (length > cbOutput)
        return frame.Fail(NTE_BUFFER_TOO_SMALL,
                          "The expected output is larger than the output buffer");
    std::memset(pbOutput, 0, cbOutput);
    blob->Serialize(pbOutput, &length);
    *pcbResult = length;
    frame.log().WriteBytes("Public Key Blob: ", pbOutput, cbOutput);
    return frame.Exit(ERROR_SUCCESS);
}

}  // namespace quelmksp
