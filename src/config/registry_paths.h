// Where the provider's configuration lives under HKEY_LOCAL_MACHINE.
#pragma once

#include "platform/wide_string.h"

namespace config {

// The vendor's settings: logging, the provider cache and PIN caching.
inline constexpr const platform::WideChar* kSdkKey = WIDE("Software\\Velmora Ltd.\\QUELM SDK");

// The provider's registration with the key storage router.
inline constexpr const platform::WideChar* kProviderKey =
    WIDE("System\\CurrentControlSet\\Control\\Cryptography\\Providers\\Velmora KSP v4.5");

}  // namespace config
