#pragma once

#include <p11-kit/pkcs11.h>

#include "module.h"

namespace quelm {

// C_GetSlotList without the slots that hold an uninitialised token, unless the settings show
// them. A slot without a token stays listed, as an empty reader does.
CK_RV get_slot_list(const Module& module, CK_BBOOL token_present, CK_SLOT_ID_PTR slots,
                    CK_ULONG_PTR count);

// C_GetSlotInfo with the description that the settings give the slot's token, if any.
CK_RV get_slot_info(const Module& module, CK_SLOT_ID slot, CK_SLOT_INFO_PTR info);

}  // namespace quelm
