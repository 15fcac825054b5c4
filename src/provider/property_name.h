// Property names, as the key and provider property operations take them.
#pragma once

#include "platform/wide_string.h"
#include "provider/ncrypt_provider.h"

// Names longer than the platform's limit are refused before any lookup.
inline bool PropertyNameTooLong(const platform::WideChar* name) {
    return platform::ViewOf(name).size() > NCRYPT_MAX_PROPERTY_NAME;
}
