#include <cstring>
#include <memory>
#include <new>

#include "crypto/key_operation.h"
#include "provider/operations.h"
#include "provider/property_name.h"
#include "provider/window_handle.h"
#include "token/certificate.h"
#include "token/cryptoki_library.h"

namespace quelmksp {
namespace {

// The only flags a property write may carry; they change nothing here.
constexpr DWORD kPersistFlags = NCRYPT_PERSIST_FLAG | NCRYPT_PERSIST_ONLY_FLAG;
constexpr DWORD kMaxNameChars = 64;
constexpr DWORD kMinKeyBits = 512;
constexpr DWORD kMaxKeyBits = 4096;
constexpr DWORD kKeyBitsStep = 512;

struct Input {
    PBYTE bytes;
    DWORD length;
};

// "Key Usage" and "Length" shape the key the token will make, so they close
// at finalization.
SECURITY_STATUS ReadCreationDword(OperationFrame& frame, const QUELMKSP_KEY& key, Input input,
                                  DWORD* value) {
    if (input.length != sizeof(DWORD)) {
        frame.Line("cbInput != sizeof(DWORD)");
        return frame.Exit(NTE_BAD_DATA);
    }
    if (key.fFinished) {
        frame.Line("pKey->fFinished == TRUE");
        return frame.Exit(NTE_BAD_KEY_STATE);
    }
    std::memcpy(value, input.bytes, sizeof *value);
    return ERROR_SUCCESS;
}

SECURITY_STATUS SetKeyUsage(OperationFrame& frame, QUELMKSP_KEY& key, Input input) {
    frame.Line("dwProperty = NCRYPT_KEY_USAGE_PROPERTY");
    DWORD usage = 0;
    if (SECURITY_STATUS status = ReadCreationDword(frame, key, input, &usage)) return status;
    key.dwKeyUsage = usage;
    return frame.Exit(ERROR_SUCCESS);
}

SECURITY_STATUS SetLength(OperationFrame& frame, QUELMKSP_KEY& key, Input input) {
    frame.Line("dwProperty = NCRYPT_LENGTH_PROPERTY");
    DWORD bits = 0;
    if (SECURITY_STATUS status = ReadCreationDword(frame, key, input, &bits)) return status;
    if (bits < kMinKeyBits || bits > kMaxKeyBits || bits % kKeyBitsStep != 0) {
        frame.Line("specified length is invalid");
        return frame.Exit(NTE_NOT_SUPPORTED);
    }
    key.dwBitLength = bits;
    return frame.Exit(ERROR_SUCCESS);
}

SECURITY_STATUS SetName(OperationFrame& frame, QUELMKSP_KEY& key, Input input) {
    frame.Line("dwProperty = NCRYPT_NAME_PROPERTY");
    if (input.length >= kMaxNameChars * sizeof(platform::WideChar)) {
        frame.Line("cbInput >= (QUELMKSP_MAX_NAME_LEN*sizeof(WCHAR))");
        return frame.Exit(NTE_BAD_DATA);
    }
    if (input.length % 2) {
        frame.Line("(cbInput % 2)");
        return frame.Exit(NTE_BAD_DATA);
    }
    key.pszKeyName.reset();
    key.cbKeyName = 0;
    size_t chars = input.length / sizeof(platform::WideChar);
    platform::SecureBuffer<platform::WideChar> name;
    try {
        name = platform::SecureBuffer<platform::WideChar>(chars + 1);
    } catch (const std::bad_alloc&) {
        return frame.Exit(NTE_NO_MEMORY);
    }
    std::memcpy(name.get(), input.bytes, input.length);
    key.pszKeyName = std::move(name);
    key.cbKeyName = static_cast<uint32_t>(platform::WideView(key.KeyName()).size());
    frame.log().WriteWide("pKey->pszKeyName = ", key.KeyName());
    frame.log().WriteHex("pKey->cbKeyName = ", key.cbKeyName);
    return frame.Exit(ERROR_SUCCESS);
}

SECURITY_STATUS StoreCertificate(OperationFrame& frame, const QUELMKSP_PROVIDER& provider,
                                 const QUELMKSP_KEY& key, Input input) {
    frame.Line("dwProperty = NCRYPT_CERTIFICATE_PROPERTY");
    if (!key.fFinished) {
        frame.Line("Key referenced by hKey is not yet finalized.");
        return frame.Exit(NTE_BAD_KEY_STATE);
    }
    if (!key.hPublicKey && !key.hPrivateKey) {
        frame.Line("Key referenced by hKey does not contain any key handle");
        return frame.Exit(NTE_BAD_KEY_STATE);
    }
    std::unique_ptr<Certificate> certificate(new (std::nothrow) Certificate());
    if (!certificate) return frame.Exit(NTE_NO_MEMORY);
    frame.Line("Setting crypto interface pointer");
    certificate->pCryptoki = g_pCryptoki;
    frame.Line("Setting session handle");
    certificate->hSession = provider.hSession;
    frame.Line("Setting public key handle");
    if (key.hPublicKey) {
        certificate->hPublicKey = key.hPublicKey;
        certificate->fHasPublicKey = CK_TRUE;
    }
    frame.Line("Setting private key handle");
    if (key.hPrivateKey) {
        certificate->hPrivateKey = key.hPrivateKey;
        certificate->fHasPrivateKey = CK_TRUE;
    }

    frame.Line("Checking if certificate already exists");
    SECURITY_STATUS status = certificate->FindExistingCertificate();
    if (status == NTE_EXISTS)
        return frame.Fail(NTE_EXISTS, "A certificate already exists for the selected key pair");
    if (status != NTE_NOT_FOUND) {
        frame.Line(
            "NTE_INTERNAL_ERROR: An internal error occured. Check PKCS logs for more "
            "information");
        return frame.Exit(status);
    }
    frame.Line("No certificate has been found for this key");
    frame.Line("Setting certificate");
    return frame.Exit(certificate->WriteCertificate(input.bytes, input.length));
}

}  // namespace

SECURITY_STATUS SetKeyProperty(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                               LPCWSTR pszProperty, PBYTE pbInput, DWORD cbInput, DWORD dwFlags) {
    OperationFrame frame("QUELMKSPSetKeyProperty", {{"hProvider", hProvider},
                                                    {"hKey", hKey},
                                                    {"pszProperty", pszProperty},
                                                    {"pbInput", pbInput},
                                                    {"cbInput", cbInput},
                                                    {"dwFlags", dwFlags}});
    QUELMKSP_PROVIDER* provider = nullptr;
    QUELMKSP_KEY* key = nullptr;
    if (SECURITY_STATUS status = CheckKeyHandles(frame, hProvider, hKey, &provider, &key))
        return status;
    if (!pszProperty) return frame.Fail(NTE_INVALID_PARAMETER, "pszProperty is NULL");
    if (PropertyNameTooLong(pszProperty))
        return frame.Fail(NTE_INVALID_PARAMETER, "pszProperty is exceeds NCRYPT_MAX_PROPERTY_NAME");
    if (!pbInput) return frame.Fail(NTE_INVALID_PARAMETER, "pbInput is NULL");
    platform::WideView name(pszProperty);
    if (name != NCRYPT_SECURITY_DESCR_PROPERTY && (dwFlags & ~kPersistFlags))
        return frame.Fail(NTE_BAD_FLAGS, "dwFlags contains an invalid flag");

    Input input{pbInput, cbInput};
    if (name == NCRYPT_KEY_USAGE_PROPERTY) return SetKeyUsage(frame, *key, input);
    if (name == NCRYPT_LENGTH_PROPERTY) return SetLength(frame, *key, input);
    if (name == NCRYPT_NAME_PROPERTY) return SetName(frame, *key, input);
    if (name == NCRYPT_CERTIFICATE_PROPERTY) return StoreCertificate(frame, *provider, *key, input);
    if (name == NCRYPT_UI_POLICY_PROPERTY) {
        frame.Line("NCRYPT_UI_POLICY is not supported and will be ignored");
        return frame.Exit(ERROR_SUCCESS);
    }
    if (name == NCRYPT_EXPORT_POLICY_PROPERTY) {
        frame.Line("NCRYPT_EXPORT_POLICY_PROPERTY is not supported and will be ignored");
        return frame.Exit(ERROR_SUCCESS);
    }
    if (name == NCRYPT_WINDOW_HANDLE_PROPERTY)
        return SetWindowHandle(frame, *provider, input.bytes, input.length);
    return frame.Exit(NTE_NOT_SUPPORTED);
}

}  // namespace quelmksp
