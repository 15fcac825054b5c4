#include "keys/key_context.h"

#include <atomic>
#include <memory>
#include <new>

#include "diag/debug_class.h"
#include "provider/handle_registry.h"

namespace {

constexpr uint32_t kDefaultAlgId = 1;
constexpr uint32_t kDefaultBitLength = 2048;
constexpr uint32_t kSignAndDecrypt = NCRYPT_ALLOW_DECRYPT_FLAG | NCRYPT_ALLOW_SIGNING_FLAG;

// Opened on first use and never closed; a failed open is tried again by the
// next record.
std::atomic<platform::AlgorithmHandle> g_rsaAlgorithm{nullptr};

int32_t SharedAlgorithmHandle(platform::AlgorithmHandle* handle) {
    if (platform::AlgorithmHandle open = g_rsaAlgorithm.load()) {
        *handle = open;
        return 0;
    }
    int32_t status = platform::OpenRsaAlgorithmProvider(handle);
    if (status == 0) g_rsaAlgorithm.store(*handle);
    return status;
}

}  // namespace

SECURITY_STATUS CreateNewKeyObject(const platform::WideChar* keyName, QUELMKSP_KEY** record) {
    std::unique_ptr<QUELMKSP_KEY> key(new (std::nothrow) QUELMKSP_KEY());
    if (!key) return NTE_NO_MEMORY;
    key->cbLength = QUELMKSP_KEY::kRecordLength;
    key->dwMagic = QUELMKSP_KEY::kMagic;
    key->dwAlgId = kDefaultAlgId;
    key->dwBitLength = kDefaultBitLength;

    if (keyName) {
        size_t chars = platform::WideView(keyName).size() + 1;
        if (chars > kMaxKeyNameChars) {
            g_pTokenLog->WriteLine("NTE_INVALID_PARAMETER: Length of key name exceeds MAX_PATH");
            return NTE_INVALID_PARAMETER;
        }
        key->pszKeyName = platform::SecureBuffer<platform::WideChar>::CopyOf(keyName, chars);
        if (!key->pszKeyName) return NTE_NO_MEMORY;
        key->cbKeyName = static_cast<uint32_t>(chars);
    }

    int32_t status = SharedAlgorithmHandle(&key->hAlgProvider);
    if (status != 0) return NtStatusToSecurityStatus(status);

    key->dwExportPolicy = NCRYPT_ALLOW_PLAINTEXT_EXPORT_FLAG;
    key->dwKeyUsage = kSignAndDecrypt;
    *record = key.release();
    return ERROR_SUCCESS;
}

SECURITY_STATUS DeleteKeyObject(QUELMKSP_KEY& record) {
    record.pszKeyName.reset();
    record.cbKeyName = 0;
    record.pbPrivateKeyBlob.reset();
    record.cbPrivateKeyBlob = 0;
    for (auto* component :
         {&record.pbModulus, &record.pbPrime1, &record.pbPrime2, &record.pbExponent1,
          &record.pbExponent2, &record.pbCoefficient, &record.pbPrivateExponent})
        component->reset();
    return ERROR_SUCCESS;
}

QUELMKSP_KEY* KeyFromHandle(NCRYPT_KEY_HANDLE handle, const void* provider) {
    auto* key = reinterpret_cast<QUELMKSP_KEY*>(handle);
    if (!g_pHandles->Contains(key, HandleKind::kKey, provider)) return nullptr;
    if (!key || key->cbLength < QUELMKSP_KEY::kRecordLength || key->dwMagic != QUELMKSP_KEY::kMagic)
        return nullptr;
    return key;
}

SECURITY_STATUS NtStatusToSecurityStatus(int32_t status) {
    switch (static_cast<uint32_t>(status)) {
        case 0:
            return ERROR_SUCCESS;
        case 0xC0000008:
            return NTE_INVALID_HANDLE;
        case 0xC000000D:
            return NTE_INVALID_PARAMETER;
        case 0xC0000017:
        case 0xC000009A:
            return NTE_NO_MEMORY;
        case 0xC0000023:
            return NTE_BUFFER_TOO_SMALL;
        case 0xC00000BB:
            return NTE_NOT_SUPPORTED;
        case 0xC000A000:
            return NTE_BAD_SIGNATURE;
        default:
            return NTE_INTERNAL_ERROR;
    }
}
