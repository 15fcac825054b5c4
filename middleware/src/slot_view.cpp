#include "slot_view.h"

#include <algorithm>
#include <vector>

#include "token_identity.h"

namespace quelm {
namespace {

bool hidden(const Module& module, CK_SLOT_ID slot) {
    if (module.settings.show_uninitialized) return false;
    CK_TOKEN_INFO token{};
    if (module.token_info(slot, &token) != CKR_OK) return false;
    return !(token.flags & CKF_TOKEN_INITIALIZED);
}

CK_RV backend_slots(const Module& module, CK_BBOOL token_present, std::vector<CK_SLOT_ID>& slots) {
    // The list may grow between the two calls when a reader appears.
    for (;;) {
        CK_ULONG count = 0;
        CK_RV rv = module.backend.C_GetSlotList(token_present, nullptr, &count);
        if (rv != CKR_OK) return rv;
        slots.resize(count);
        rv = module.backend.C_GetSlotList(token_present, slots.data(), &count);
        if (rv == CKR_BUFFER_TOO_SMALL) continue;
        if (rv == CKR_OK) slots.resize(count);
        return rv;
    }
}

}  // namespace

CK_RV get_slot_list(const Module& module, CK_BBOOL token_present, CK_SLOT_ID_PTR slots,
                    CK_ULONG_PTR count) {
    if (!count) return CKR_ARGUMENTS_BAD;
    std::vector<CK_SLOT_ID> listed;
    if (const CK_RV rv = backend_slots(module, token_present, listed); rv != CKR_OK) return rv;
    std::erase_if(listed, [&module](CK_SLOT_ID slot) { return hidden(module, slot); });

    const CK_ULONG needed = static_cast<CK_ULONG>(listed.size());
    if (!slots) {
        *count = needed;
        return CKR_OK;
    }
    if (*count < needed) {
        *count = needed;
        return CKR_BUFFER_TOO_SMALL;
    }
    std::copy(listed.begin(), listed.end(), slots);
    *count = needed;
    return CKR_OK;
}

CK_RV get_slot_info(const Module& module, CK_SLOT_ID slot, CK_SLOT_INFO_PTR info) {
    const CK_RV rv = module.backend.C_GetSlotInfo(slot, info);
    if (rv != CKR_OK || module.settings.slot_names.empty()) return rv;
    if (!(info->flags & CKF_TOKEN_PRESENT)) return rv;
    CK_TOKEN_INFO token{};
    if (module.token_info(slot, &token) != CKR_OK) return rv;
    const std::string serial = unpadded(token.serialNumber, sizeof token.serialNumber);
    const std::string label = unpadded(token.label, sizeof token.label);
    for (const SlotNameRule& rule : module.settings.slot_names) {
        if (rule.token == serial || rule.token == label) {
            write_padded(info->slotDescription, sizeof info->slotDescription, rule.description);
            break;
        }
    }
    return rv;
}

}  // namespace quelm
