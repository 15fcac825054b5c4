#pragma once

#include <mutex>

#include <p11-kit/pkcs11.h>

#include "retry_counter_store.h"
#include "session_table.h"
#include "settings.h"

namespace quelm {

// Everything that exists between C_Initialize and C_Finalize.
struct Module {
    Module(Settings module_settings, CK_FUNCTION_LIST& functions)
        : settings(std::move(module_settings)), backend(functions), counters(settings.state_dir) {}

    // The backend's C_GetTokenInfo, one call at a time: SoftHSM2 formats the
    // token's clock with gmtime(), whose result is shared by all threads.
    CK_RV token_info(CK_SLOT_ID slot, CK_TOKEN_INFO* info) const {
        std::lock_guard<std::mutex> hold(token_info_lock);
        return backend.C_GetTokenInfo(slot, info);
    }

    const Settings settings;
    CK_FUNCTION_LIST& backend;
    SessionTable sessions;
    const RetryCounterStore counters;
    mutable std::mutex token_info_lock;
};

}  // namespace quelm
