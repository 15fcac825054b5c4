#include "crypto/key_operation.h"
#include "provider/operations.h"

namespace quelmksp {
namespace {

constexpr DWORD kCipherFlags =
    NCRYPT_NO_PADDING_FLAG | NCRYPT_PAD_PKCS1_FLAG | NCRYPT_PAD_OAEP_FLAG | NCRYPT_SILENT_FLAG;

enum class Direction { kEncrypt, kDecrypt };

// Encryption and decryption differ only in the key half they use and the
// lines they write.
SECURITY_STATUS RunCipher(Direction direction, NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                          PBYTE pbInput, DWORD cbInput, void* pPaddingInfo, PBYTE pbOutput,
                          DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags) {
    bool encrypt = direction == Direction::kEncrypt;
    OperationFrame frame(encrypt ? "QUELMKSPEncrypt" : "QUELMKSPDecrypt",
                         {{"hProvider", hProvider},
                          {"hKey", hKey},
                          {"pbInput", pbInput},
                          {"cbInput", cbInput},
                          {"pPaddingInfo", pPaddingInfo},
                          {"pbOutput", pbOutput},
                          {"cbOutput", cbOutput},
                          {"pcbResult", pcbResult},
                          {"dwFlags", dwFlags}});
    QUELMKSP_PROVIDER* provider = nullptr;
    QUELMKSP_KEY* key = nullptr;
    if (SECURITY_STATUS status = CheckKeyHandles(frame, hProvider, hKey, &provider, &key))
        return status;
    if (!pbInput) return frame.Fail(NTE_INVALID_PARAMETER, "pbInput is NULL");
    if (!pcbResult) return frame.Fail(NTE_INVALID_PARAMETER, "pcbResult is NULL");
    if (dwFlags & ~kCipherFlags) return frame.Fail(NTE_BAD_FLAGS, kBadFlags);
    if (dwFlags & NCRYPT_PAD_OAEP_FLAG)
        return frame.Fail(NTE_NOT_SUPPORTED, "OAEP padding scheme is currently not supported.");
    // A key shorter than a byte has no block length to divide by.
    DWORD blockLength = key->dwBitLength / 8;
    if ((dwFlags & NCRYPT_NO_PADDING_FLAG) && (blockLength == 0 || cbInput % blockLength != 0))
        return frame.Fail(NTE_INVALID_PARAMETER,
                          "Data length is not a multiple of the algorithm block length.");
    if (!key->fFinished) return frame.Fail(NTE_BAD_KEY_STATE, kNotFinalized);
    if (SECURITY_STATUS status = LogInForOperation(frame, *provider)) return status;

    std::unique_ptr<RSAPair> pair = PairOnSession(*provider, *key);
    if (!pair) return frame.Exit(NTE_NO_MEMORY);
    CK_ULONG length = pbOutput ? cbOutput : *pcbResult;
    SECURITY_STATUS status;
    if (encrypt) {
        pair->hPublicKey = key->hPublicKey;
        status = pair->EncryptData(pbInput, cbInput, pbOutput, &length);
        if (status != ERROR_SUCCESS)
            frame.Line("Encryption failed. Check PKCS logs for detailed information.");
    } else {
        pair->hPrivateKey = key->hPrivateKey;
        status = pair->DecryptData(pbInput, cbInput, pbOutput, &length);
        if (status != ERROR_SUCCESS)
            frame.log().WriteHex("Decryption failed. Check PKCS logs for detailed information",
                                 static_cast<uint32_t>(status));
    }
    *pcbResult = static_cast<DWORD>(length);
    if (!pbOutput) frame.log().WriteHex("pbOutput is NULL. Data length: ", *pcbResult);
    return frame.Exit(status);
}

}  // namespace

SECURITY_STATUS Encrypt(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                        DWORD cbInput, void* pPaddingInfo, PBYTE pbOutput, DWORD cbOutput,
                        DWORD* pcbResult, DWORD dwFlags) {
    return RunCipher(Direction::kEncrypt, hProvider, hKey, pbInput, cbInput, pPaddingInfo, pbOutput,
                     cbOutput, pcbResult, dwFlags);
}

SECURITY_STATUS Decrypt(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                        DWORD cbInput, void* pPaddingInfo, PBYTE pbOutput, DWORD cbOutput,
                        DWORD* pcbResult, DWORD dwFlags) {
    return RunCipher(Direction::kDecrypt, hProvider, hKey, pbInput, cbInput, pPaddingInfo, pbOutput,
                     cbOutput, pcbResult, dwFlags);
}

}  // namespace quelmksp
