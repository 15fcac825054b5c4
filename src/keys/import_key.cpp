#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "crypto/key_operation.h"
#include "keys/key_creation.h"
#include "keys/private_key_blob.h"
#include "pin/login.h"
#include "platform/secure_zero.h"
#include "provider/handle_registry.h"
#include "provider/operations.h"
#include "token/cryptoki_library.h"
#include "token/public_key.h"
#include "token/random_key_id.h"

namespace quelmksp {
namespace {

constexpr DWORD kImportFlags = NCRYPT_NO_KEY_VALIDATION | NCRYPT_MACHINE_KEY_FLAG |
                               NCRYPT_SILENT_FLAG | NCRYPT_OVERWRITE_KEY_FLAG |
                               NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG | NCRYPT_DO_NOT_FINALIZE_FLAG;
constexpr DWORD kRefusedImportFlags =
    NCRYPT_MACHINE_KEY_FLAG | NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG;
constexpr ULONG kMaxNameBufferBytes = 0x7FFFFFFF;
constexpr size_t kCountedNameChars = 127;
// Magic and bit length travel in clear in front of an encrypted blob.
constexpr DWORD kClearBytes = 8;

enum class BlobKind { kPublic, kPrivate };

std::optional<BlobKind> KindOf(LPCWSTR blobType) {
    platform::WideView type = platform::ViewOf(blobType);
    if (blobType && type == BCRYPT_RSAPUBLIC_BLOB) return BlobKind::kPublic;
    if (blobType && type == BCRYPT_RSAPRIVATE_BLOB) return BlobKind::kPrivate;
    return std::nullopt;
}

// The key's name from the parameter list: the last usable key-name entry.
// A name must end within its buffer; one that does not is refused rather
// than read past its end.
SECURITY_STATUS ReadKeyNameFromParams(const NCryptBufferDesc* parameters, QUELMKSP_KEY& key) {
    if (!parameters || !parameters->pBuffers) return ERROR_SUCCESS;
    const platform::WideChar* name = nullptr;
    size_t nameChars = 0;
    for (ULONG i = 0; i < parameters->cBuffers; ++i) {
        const NCryptBuffer& entry = parameters->pBuffers[i];
        if (entry.BufferType != NCRYPTBUFFER_PKCS_KEY_NAME || !entry.pvBuffer ||
            entry.cbBuffer < sizeof(platform::WideChar))
            continue;
        if (entry.cbBuffer > kMaxNameBufferBytes) return NTE_INVALID_PARAMETER;
        auto* text = static_cast<const platform::WideChar*>(entry.pvBuffer);
        size_t capacity = entry.cbBuffer / sizeof(platform::WideChar);
        size_t length = 0;
        while (length < capacity && text[length] != 0) ++length;
        if (length == capacity) return NTE_INVALID_PARAMETER;
        name = text;
        nameChars = length;
    }
    if (!name) return ERROR_SUCCESS;
    key.pszKeyName = platform::SecureBuffer<platform::WideChar>::CopyOf(name, nameChars + 1);
    if (!key.pszKeyName) return NTE_NO_MEMORY;
    key.cbKeyName = nameChars < kCountedNameChars ? static_cast<uint32_t>(nameChars) : 0;
    return ERROR_SUCCESS;
}

// The blob decrypted on the token by the import key's private key, with its
// clear first bytes in front. The token refuses a private key that has not
// been logged in; no login is made here.
SECURITY_STATUS DecryptBlob(OperationFrame& frame, const QUELMKSP_PROVIDER& provider,
                            const QUELMKSP_KEY& importKey, const uint8_t* data, DWORD length,
                            KeyBytes* blob, uint32_t* blobLength) {
    if (length <= kClearBytes)
        return frame.Fail(NTE_BAD_DATA, "The encrypted blob holds no ciphertext");
    std::unique_ptr<RSAPair> pair = PairOnSession(provider, importKey);
    if (!pair) return frame.Exit(NTE_NO_MEMORY);
    pair->hPrivateKey = importKey.hPrivateKey;
    CK_ULONG plainLength = 0;
    if (SECURITY_STATUS status =
            pair->DecryptData(data + kClearBytes, length - kClearBytes, nullptr, &plainLength))
        return frame.Exit(status);
    try {
        *blob = KeyBytes(plainLength + kClearBytes);
    } catch (const std::bad_alloc&) {
        return frame.Exit(NTE_NO_MEMORY);
    }
    if (SECURITY_STATUS status = pair->DecryptData(data + kClearBytes, length - kClearBytes,
                                                   blob->get() + kClearBytes, &plainLength))
        return frame.Exit(status);
    std::memcpy(blob->get(), data, kClearBytes);
    // The blob counts only as long as the plaintext, clear bytes included.
    *blobLength = static_cast<uint32_t>(plainLength);
    return ERROR_SUCCESS;
}

// The public half alone becomes a token object at once: a token object
// labelled with the name, or a session object when there is none.
SECURITY_STATUS ImportPublicKey(OperationFrame& frame, QUELMKSP_PROVIDER& provider,
                                QUELMKSP_KEY& key) {
    std::unique_ptr<PublicKey> publicKey(new (std::nothrow) PublicKey());
    if (!publicKey) return frame.Exit(NTE_NO_MEMORY);
    uint8_t id[kKeyIdBytes] = {};
    CK_RV rv = GenerateNonZeroId(*g_pCryptoki->functions(), provider.hSession, id, sizeof id);
    if (rv != CKR_OK) return frame.Fail(NTE_INTERNAL_ERROR, "Random number generation failed");

    frame.Line("Initializing public key attributes");
    publicKey->pCryptoki = g_pCryptoki;
    publicKey->hSession = provider.hSession;
    const uint32_t modulusBytes = key.dwBitLength / 8;
    publicKey->SetModulus(key.pbModulus.get(), modulusBytes);
    publicKey->SetPublicExponent(key.rgbPublicExponent);
    publicKey->SetId(id);
    platform::SecureZero(id, sizeof id);

    frame.Line("Creating public key");
    std::optional<TokenLabel> label = LabelForKey(key);
    if (!label)
        return frame.Fail(NTE_INVALID_PARAMETER,
                          "The key name does not fit in a token label of 62 characters");
    if (key.KeyName()) {
        if (SECURITY_STATUS status = Login(&provider)) {
            frame.Line("Failed to login. Operation aborted");
            return frame.Exit(status);
        }
    }
    const uint8_t* labelBytes =
        key.KeyName() ? reinterpret_cast<const uint8_t*>(label->bytes) : nullptr;
    rv = publicKey->CreatePublicKeyObject(kExchangeAndSignature, labelBytes, key.cbKeyName);
    if (rv != CKR_OK) {
        frame.log().WriteHex("Public key creation failed: ", static_cast<uint32_t>(rv));
        return frame.ExitWithoutTrace(NTE_INTERNAL_ERROR);
    }
    key.hPublicKey = publicKey->GetHandle();
    key.fFinished = 1;
    return ERROR_SUCCESS;
}

SECURITY_STATUS KeepPrivateMaterial(OperationFrame& frame, const PrivateKeyBlob& parsed,
                                    const KeyBytes& blob, uint32_t blobLength, QUELMKSP_KEY& key) {
    key.pbPrime1 = KeyBytes::CopyOf(parsed.prime1().get(), parsed.prime1().size());
    key.pbPrime2 = KeyBytes::CopyOf(parsed.prime2().get(), parsed.prime2().size());
    key.pbPrivateKeyBlob = KeyBytes::CopyOf(blob.get(), blobLength);
    key.cbPrivateKeyBlob = blobLength;
    if (!key.pbPrivateKeyBlob || (parsed.prime1().size() && !key.pbPrime1) ||
        (parsed.prime2().size() && !key.pbPrime2))
        return frame.Exit(NTE_NO_MEMORY);
    return ERROR_SUCCESS;
}

// The session leaves an import logged out; the PIN the provider holds for
// it goes too.
SECURITY_STATUS LogoutAfterImport(QUELMKSP_PROVIDER* provider) {
    if (!provider || !g_pCryptoki) return NTE_INVALID_PARAMETER;
    CK_RV rv = g_pCryptoki->functions()->C_Logout(provider->hSession);
    if (rv != CKR_OK && rv != CKR_USER_NOT_LOGGED_IN) return NTE_INTERNAL_ERROR;
    provider->pbPin.reset();
    provider->cchPin = 0;
    return ERROR_SUCCESS;
}

}  // namespace

SECURITY_STATUS ImportKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hImportKey,
                          LPCWSTR pszBlobType, NCryptBufferDesc* pParameterList,
                          NCRYPT_KEY_HANDLE* phKey, PBYTE pbData, DWORD cbData, DWORD dwFlags) {
    OperationFrame frame("QUELMKSPImportKey", {{"hProvider", hProvider},
                                               {"hImportKey", hImportKey},
                                               {"pszBlobType", pszBlobType},
                                               {"pParameterList", pParameterList},
                                               {"phKey", phKey},
                                               {"pbData", pbData},
                                               {"cbData", cbData},
                                               {"dwFlags", dwFlags}});
    QUELMKSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider) return frame.Fail(NTE_INVALID_HANDLE, "pProvider is NULL");
    std::optional<BlobKind> kind = KindOf(pszBlobType);
    if (!kind) return frame.Exit(NTE_NOT_SUPPORTED);
    if (!phKey) return frame.Fail(NTE_INVALID_PARAMETER, "phKey is NULL");
    if (!pbData) return frame.Fail(NTE_INVALID_PARAMETER, "pbData is NULL");
    if (cbData == 0) return frame.Fail(NTE_INVALID_PARAMETER, "cbData is 0");
    if (dwFlags & ~kImportFlags) return frame.Fail(NTE_BAD_FLAGS, kBadFlags);
    if (dwFlags & kRefusedImportFlags)
        return frame.Fail(NTE_NOT_SUPPORTED,
                          "NCRYPT_MACHINE_KEY_FLAG and NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG are "
                          "not supported flags.");

    QUELMKSP_KEY* created = nullptr;
    if (SECURITY_STATUS status = CreateNewKeyObject(nullptr, &created)) return frame.Exit(status);
    std::unique_ptr<QUELMKSP_KEY> key(created);
    if (SECURITY_STATUS status = ReadKeyNameFromParams(pParameterList, *key)) {
        if (status == NTE_INVALID_PARAMETER) frame.Line("ReadKeyNameFromParams failed");
        return frame.Exit(status);
    }

    KeyBytes blob;
    uint32_t blobLength = cbData;
    if (hImportKey != 0) {
        QUELMKSP_KEY* importKey = KeyFromHandle(hImportKey, provider);
        if (!importKey) return frame.Fail(NTE_INVALID_HANDLE, "hImportKey handle is invalid");
        if (SECURITY_STATUS status =
                DecryptBlob(frame, *provider, *importKey, pbData, cbData, &blob, &blobLength))
            return status;
    } else {
        blob = KeyBytes::CopyOf(pbData, cbData);
        if (!blob) return frame.Exit(NTE_NO_MEMORY);
    }

    PrivateKeyBlob parsed;
    SECURITY_STATUS status = parsed.Parse(blob.get(), blobLength);
    if (status == NTE_BUFFER_TOO_SMALL)
        return frame.Fail(NTE_INTERNAL_ERROR, "cbBlobBuffer is too small");
    if (status != ERROR_SUCCESS) return frame.Exit(NTE_INTERNAL_ERROR);
    const RsaKeyBlobHeader& header = parsed.header();
    key->dwBitLength = header.BitLength;
    key->dwAlgId = 0;
    if (header.cbPublicExp > sizeof key->rgbPublicExponent) {
        frame.Line("Public exponent length exceeds 32 bits");
        return frame.Exit(NTE_NOT_SUPPORTED);
    }
    // The objects take their modulus length from the bit length; a blob where
    // the two disagree would have them read past the modulus.
    if (header.BitLength != 8 * uint64_t{header.cbModulus})
        return frame.Fail(NTE_BAD_DATA, "BitLength does not match the length of the modulus");
    std::memset(key->rgbPublicExponent, 0, sizeof key->rgbPublicExponent);
    std::memcpy(key->rgbPublicExponent, parsed.publicExponent().get(), header.cbPublicExp);
    key->pbModulus = KeyBytes::CopyOf(parsed.modulus().get(), parsed.modulus().size());
    if (!key->pbModulus) return frame.Exit(NTE_NO_MEMORY);

    if (*kind == BlobKind::kPublic) {
        if (SECURITY_STATUS failed = ImportPublicKey(frame, *provider, *key)) return failed;
    } else {
        if (SECURITY_STATUS failed = KeepPrivateMaterial(frame, parsed, blob, blobLength, *key))
            return failed;
        if (!(dwFlags & NCRYPT_DO_NOT_FINALIZE_FLAG)) {
            frame.Line("Finalizing key...");
            // An import that leaves nothing on the token is not a success: the
            // caller would take the key for stored.
            g_pHandles->Add(key.get(), HandleKind::kKey, provider);
            SECURITY_STATUS finalized =
                FinalizeKey(hProvider, reinterpret_cast<NCRYPT_KEY_HANDLE>(key.get()), 0);
            if (finalized != ERROR_SUCCESS) {
                g_pHandles->Remove(key.get(), HandleKind::kKey);
                return frame.Exit(finalized);
            }
        }
    }
    g_pHandles->Add(key.get(), HandleKind::kKey, provider);
    *phKey = reinterpret_cast<NCRYPT_KEY_HANDLE>(key.release());
    LogoutAfterImport(provider);
    return frame.Exit(ERROR_SUCCESS);
}

}  // namespace quelmksp
