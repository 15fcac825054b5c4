// The one-entry provider cache: the provider opened last, so that an
// OpenProvider that follows at once can reuse its reader without asking the
// user again. Any other operation in between forgets it.
#pragma once

#include <cstdint>

struct QUELMKSP_PROVIDER;

struct ProviderCache {
    uint32_t fSet = 0;
    QUELMKSP_PROVIDER* pProvider = nullptr;
};

extern ProviderCache* g_pProviderCache;
