#include <memory>

#include "config/registry_paths.h"
#include "keys/key_creation.h"
#include "platform/registry.h"
#include "provider/handle_registry.h"
#include "provider/operation_frame.h"
#include "provider/operations.h"

namespace quelmksp {
namespace {

constexpr DWORD kCreateFlags =
    NCRYPT_MACHINE_KEY_FLAG | NCRYPT_SILENT_FLAG | NCRYPT_OVERWRITE_KEY_FLAG;
constexpr DWORD kMaxLegacyKeySpec = 2;
constexpr uint32_t kLegacyAlgIds[] = {0, 0xA400 /* CALG_RSA_KEYX */, 0x2400 /* CALG_RSA_SIGN */};

// The length of new keys is the installation's choice; there is no built-in
// default to fall back on.
bool ReadDefaultKeyLength(uint32_t* bits) {
    uint32_t size = sizeof *bits;
    return platform::registry::GetValue(config::kProviderKey, WIDE("Default Key Length"),
                                        platform::registry::kRestrictDword, nullptr, bits,
                                        &size) == platform::registry::kSuccess;
}

// Writes "Key handle: " just before the exit line, on every path that was
// given somewhere to put the handle.
class KeyHandleLine {
public:
    KeyHandleLine(TraceFrame& frame, NCRYPT_KEY_HANDLE* phKey) : frame_(frame), phKey_(phKey) {}
    ~KeyHandleLine() {
        if (phKey_) frame_.log().WriteHex("Key handle: ", Low32(*phKey_));
    }

private:
    TraceFrame& frame_;
    NCRYPT_KEY_HANDLE* phKey_;
};

}  // namespace

SECURITY_STATUS CreatePersistedKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey,
                                   LPCWSTR pszAlgId, LPCWSTR pszKeyName, DWORD dwLegacyKeySpec,
                                   DWORD dwFlags) {
    OperationFrame frame("QUELMKSPCreatePersistedKey", {{"hProvider", hProvider},
                                                        {"phKey", phKey},
                                                        {"pszAlgId", pszAlgId},
                                                        {"pszKeyName", pszKeyName},
                                                        {"dwLegacyKeySpec", dwLegacyKeySpec},
                                                        {"dwFlags", dwFlags}});
    KeyHandleLine handleLine(frame, phKey);
    QUELMKSP_PROVIDER* provider = ProviderFromHandle(hProvider);
    if (!provider) return frame.Fail(NTE_INVALID_HANDLE, "pProvider is NULL");
    if (!phKey) return frame.Fail(NTE_INVALID_PARAMETER, "phKey is NULL");
    if (!pszAlgId) return frame.Fail(NTE_INVALID_PARAMETER, "pszAlgID is NULL");
    if (dwFlags & ~kCreateFlags)
        return frame.Fail(NTE_BAD_FLAGS,
                          "Only NCRYPT_MACHINE_KEY_FLAG and NCRYPT_OVERWIRTE_KEY_FLAG is "
                          "acceptable.");
    if (platform::WideView(pszAlgId) != NCRYPT_RSA_ALGORITHM)
        return frame.Fail(NTE_NOT_SUPPORTED, "This KSP only supports NCRYPT_RSA_ALGORITHM");
    if (dwLegacyKeySpec > kMaxLegacyKeySpec)
        return frame.Fail(NTE_INVALID_PARAMETER, "Invalid dwLegacyKeySpec value");

    QUELMKSP_KEY* created = nullptr;
    SECURITY_STATUS status = CreateNewKeyObject(pszKeyName, &created);
    if (status != ERROR_SUCCESS) {
        frame.Line("Failed to create new key object");
        return frame.Exit(status);
    }
    std::unique_ptr<QUELMKSP_KEY> key(created);

    if (pszKeyName) {
        frame.Line("Validating key file existence");
        status = CheckKeyExists(*key, *provider);
        if (status == NTE_EXISTS && (dwFlags & NCRYPT_OVERWRITE_KEY_FLAG)) {
            frame.Line("NTE_EXISTS: A key with same name exists and will be overwritten");
            key->fOverwrite = 1;
        } else if (status == NTE_EXISTS) {
            return frame.Fail(NTE_EXISTS, "A key with the same name already exists");
        } else if (status != NTE_NOT_FOUND) {
            frame.Line("Failed to validate key file existence");
            return frame.Exit(status);
        } else {
            // A lone half of another pair may carry the label; this key must
            // never name it, or deleting the unfinalized key would destroy it.
            key->hPublicKey = 0;
            key->hPrivateKey = 0;
        }
    }

    uint32_t bits = 0;
    if (!ReadDefaultKeyLength(&bits))
        return frame.Fail(NTE_INTERNAL_ERROR, "Failed to get registry key");
    key->dwBitLength = bits;
    key->dwAlgId = kLegacyAlgIds[dwLegacyKeySpec];
    g_pHandles->Add(key.get(), HandleKind::kKey, provider);
    *phKey = reinterpret_cast<NCRYPT_KEY_HANDLE>(key.release());
    return frame.Exit(ERROR_SUCCESS);
}

}  // namespace quelmksp
