#pragma once

#include <p11-kit/pkcs11.h>

#include "retry_counter_store.h"
#include "session_table.h"
#include "settings.h"

namespace quelm {

// Everything that exists between C_Initialize and C_Finalize.
struct Module {
    Module(Settings module_settings, CK_FUNCTION_LIST& functions)
        : settings(std::move(module_settings)), backend(functions), counters(settings.state_dir) {}

    const Settings settings;
    CK_FUNCTION_LIST& backend;
    SessionTable sessions;
    const RetryCounterStore counters;
};

}  // namespace quelm
