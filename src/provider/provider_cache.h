// The one-entry provider cache: the provider opened last, so that an
// OpenProvider that follows at once can reuse its reader without asking the
// user again. Any other operation in between forgets it.
#pragma once

#include <cstdint>
#include <optional>

#include "platform/sync.h"
#include "platform/wide_string.h"

struct QUELMKSP_PROVIDER;

class ProviderCache {
public:
    void Forget();
    // Remembers the provider unless "dwUseProviderCache" is 0.
    void CacheProviderInstance(QUELMKSP_PROVIDER* provider);
    // The reader name of the remembered provider, when there is one.
    std::optional<platform::WideString> CachedReaderName();
    // Forgets the provider if it is the remembered one, as it goes away.
    void ForgetProvider(const QUELMKSP_PROVIDER* provider);

    uint32_t fSet = 0;
    QUELMKSP_PROVIDER* pProvider = nullptr;

private:
    // Operations run on whatever threads the router uses; the reader name is
    // copied under the lock so that a concurrent FreeProvider, which forgets
    // the entry first, cannot release it under our feet.
    platform::CriticalSection lock_;
};

extern ProviderCache* g_pProviderCache;
