#include <algorithm>
#include <cstring>
#include <vector>

#include "config/registry_paths.h"
#include "platform/registry.h"
#include "provider/card_selection.h"
#include "provider/handle_registry.h"
#include "provider/operation_frame.h"
#include "provider/operations.h"
#include "provider/provider_context.h"
#include "provider/reader_ids.h"
#include "provider/slot_name.h"
#include "token/cryptoki_library.h"

namespace quelmksp {
namespace {

constexpr uint32_t kAliasesBytes = 2048;
constexpr uint32_t kLockSpinCount = 1024;

CK_FUNCTION_LIST* Token() {
    return g_pCryptoki->functions();
}

enum class AliasMatch { kFound, kNotFound, kUnreadable };

// The provider may be opened under any name the installation registered.
AliasMatch MatchAlias(const platform::WideChar* name) {
    std::vector<platform::WideChar> aliases(kAliasesBytes / sizeof(platform::WideChar) + 1, 0);
    uint32_t size = kAliasesBytes;
    if (platform::registry::GetValue(config::kProviderKey, WIDE("Aliases"),
                                     platform::registry::kRestrictMultiString, nullptr,
                                     aliases.data(), &size) != platform::registry::kSuccess)
        return AliasMatch::kUnreadable;
    platform::WideView wanted(name);
    size_t end = size / sizeof(platform::WideChar);
    for (size_t at = 0; at < end;) {
        platform::WideView entry(aliases.data() + at);
        if (entry == wanted) return AliasMatch::kFound;
        at += entry.size() + 1;
    }
    return AliasMatch::kNotFound;
}

std::unique_ptr<platform::WideChar[]> ReaderNameCopy(platform::WideView name) {
    name = name.substr(0, kReaderNameChars);
    auto copy = std::make_unique<platform::WideChar[]>(kReaderNameChars + 1);
    std::copy(name.begin(), name.end(), copy.get());
    return copy;
}

CK_ULONG CountSlots(CK_BBOOL tokenPresent, CK_RV* rv = nullptr) {
    CK_ULONG count = 0;
    CK_RV result = Token()->C_GetSlotList(tokenPresent, nullptr, &count);
    if (rv) *rv = result;
    return count;
}

std::vector<CK_SLOT_ID> ListSlots(CK_BBOOL tokenPresent, CK_ULONG count) {
    std::vector<CK_SLOT_ID> slots(count);
    CK_ULONG listed = count;
    Token()->C_GetSlotList(tokenPresent, slots.data(), &listed);
    slots.resize(std::min(listed, count));
    return slots;
}

// Chooses the token slot for a new provider and names its reader: the
// first token when the caller wants no dialog or when there is only one,
// otherwise the reader of the provider opened just before or the user's
// choice.
class SlotChoice {
public:
    SlotChoice(OperationFrame& frame, QUELMKSP_PROVIDER& provider, bool silent)
        : frame_(frame), provider_(provider), silent_(silent) {}

    SECURITY_STATUS Choose() {
        CK_RV rv = CKR_OK;
        CK_ULONG allSlots = CountSlots(CK_FALSE, &rv);
        if (rv != CKR_OK) return frame_.Exit(NTE_INTERNAL_ERROR);
        if (allSlots == 0) return frame_.Fail(NTE_FAIL, "No slot found");
        ListSlots(CK_FALSE, allSlots);

        CK_ULONG present = CountSlots(CK_TRUE);
        if (present == 0 && silent_)
            return frame_.Fail(NTE_FAIL, "No active slot was found and NCRYPT_SILENT_FLAG is set");
        if (present > 1 && silent_)
            frame_.Line(
                "Multiple slots are detected but NCRYPT_SILENT_FLAG is set. Defaulting to first "
                "slot.");
        slots_ = ListSlots(CK_TRUE, present);

        if (silent_ || present == 1) return TakeFirstSlot();
        return TakeChosenReader(present);
    }

private:
    SECURITY_STATUS TakeFirstSlot() {
        if (slots_.empty()) return frame_.Fail(NTE_FAIL, "No active slot was found");
        CK_SLOT_INFO info{};
        if (Token()->C_GetSlotInfo(slots_.front(), &info) != CKR_OK)
            return frame_.Fail(NTE_INTERNAL_ERROR, "GetSlotInfo failed");
        provider_.slotId = slots_.front();
        provider_.pszReaderName = ReaderNameCopy(SlotName(info));
        frame_.log().WriteWide("Defaulted to reader: ", provider_.pszReaderName.get());
        return ERROR_SUCCESS;
    }

    SECURITY_STATUS TakeChosenReader(CK_ULONG present) {
        std::vector<platform::WideChar> selected(kSelectedReaderChars + 1, 0);
        frame_.Line("Checking provider cache");
        if (auto cached = g_pProviderCache->CachedReaderName()) {
            frame_.Line("Provider set");
            std::copy_n(cached->begin(), std::min(cached->size(), kSelectedReaderChars),
                        selected.begin());
        } else {
            frame_.Line("Provider not set");
            int32_t choice = SelectCard(selected.data());
            if (choice == SCARD_E_CANCELLED || choice == SCARD_E_CANCELLED_BY_USER)
                return frame_.Fail(ERROR_CANCELLED, "The operation was cancelled.");
            frame_.log().WriteWide("Acquired ", selected.data());
        }

        if (present == 0) {
            // A token may have been inserted while the user was choosing.
            present = CountSlots(CK_TRUE);
            if (present == 0) return frame_.Fail(NTE_FAIL, "No active slot was found");
            slots_ = ListSlots(CK_TRUE, present);
        }

        frame_.Line("Iterating through slot list");
        platform::WideView wanted(selected.data());
        for (CK_SLOT_ID slot : slots_) {
            CK_SLOT_INFO info{};
            if (Token()->C_GetSlotInfo(slot, &info) != CKR_OK)
                return frame_.Fail(NTE_INTERNAL_ERROR, "GetSlotInfo failed");
            platform::WideString name = SlotName(info);
            frame_.log().WriteWide("Found slot: ", name.c_str());
            if (name == wanted) {
                frame_.log().WriteWide("Reader name acquired. Setting active slot to ",
                                       name.c_str());
                provider_.pszReaderName = ReaderNameCopy(name);
                provider_.slotId = slot;
                return ERROR_SUCCESS;
            }
        }
        return frame_.Fail(NTE_INTERNAL_ERROR, "Selected reader not found.");
    }

    OperationFrame& frame_;
    QUELMKSP_PROVIDER& provider_;
    bool silent_;
    std::vector<CK_SLOT_ID> slots_;
};

}  // namespace

SECURITY_STATUS OpenProvider(NCRYPT_PROV_HANDLE* phProvider, LPCWSTR pszProviderName,
                             DWORD dwFlags) {
    OperationFrame frame(
        "QUELMKSPOpenProvider",
        {{"phProvider", phProvider}, {"pszProviderName", pszProviderName}, {"dwFlags", dwFlags}},
        OperationFrame::Cache::kKeep);
    if (!phProvider) return frame.Fail(NTE_INVALID_PARAMETER, "phProvider is NULL");
    if (!pszProviderName) return frame.Fail(NTE_INVALID_PARAMETER, "pszProviderName is NULL");
    if (!g_pCryptoki) return frame.Fail(NTE_INTERNAL_ERROR, g_bindingError);

    switch (MatchAlias(pszProviderName)) {
        case AliasMatch::kUnreadable:
            return frame.Fail(NTE_INTERNAL_ERROR, "OpenProvider::RegGetValue");
        case AliasMatch::kNotFound:
            return frame.Fail(NTE_INVALID_PARAMETER,
                              "pszProviderName does not match the registered provider name");
        case AliasMatch::kFound:
            break;
    }
    platform::WideView name(pszProviderName);
    if ((name.size() + 1) * sizeof(platform::WideChar) > 0xFFFF)
        return frame.Fail(NTE_INVALID_PARAMETER, "cbProvider is greater than MAXUSHORT");

    ProviderRecord provider = AllocateProviderRecord(name);
    if (!provider) return frame.Fail(NTE_NO_MEMORY, "Not enough memory to allocate for pProvider");

    SECURITY_STATUS status =
        SlotChoice(frame, *provider, (dwFlags & NCRYPT_SILENT_FLAG) != 0).Choose();
    if (status != ERROR_SUCCESS) return status;

    if (Token()->C_OpenSession(provider->slotId, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr,
                               nullptr, &provider->hSession) != CKR_OK)
        return frame.Fail(NTE_INTERNAL_ERROR, "Error in opening PKCS#11 session");

    frame.Line("Caching provider instance");
    g_pProviderCache->CacheProviderInstance(provider.get());
    frame.Line("Assigning unique slot id");
    provider->dwUniqueSlotId = g_pReaderIds->GetUniqueSlotId(provider->pszReaderName.get());
    provider->pLock = std::make_unique<platform::CriticalSection>(kLockSpinCount);

    g_pHandles->Add(provider.get(), HandleKind::kProvider);
    *phProvider = reinterpret_cast<NCRYPT_PROV_HANDLE>(provider.release());
    frame.log().WriteHex("Provider handle retrieved: ", Low32(*phProvider));
    return frame.Exit(ERROR_SUCCESS);
}

}  // namespace quelmksp
