#include "provider/provider_cache.h"

#include <mutex>

#include "config/registry_paths.h"
#include "platform/registry.h"
#include "provider/provider_context.h"

namespace {

bool CacheSwitchedOff() {
    auto key = platform::registry::Key::Open(config::kSdkKey);
    if (!key) return false;
    uint32_t value = 1;
    uint32_t size = sizeof value;
    uint32_t type = 0;
    long status = key->QueryValue(WIDE("dwUseProviderCache"), &type, &value, &size);
    return status == platform::registry::kSuccess && size == sizeof value && value == 0;
}

}  // namespace

void ProviderCache::Forget() {
    std::lock_guard<platform::CriticalSection> guard(lock_);
    fSet = 0;
}

void ProviderCache::CacheProviderInstance(QUELMKSP_PROVIDER* provider) {
    if (CacheSwitchedOff()) return;
    std::lock_guard<platform::CriticalSection> guard(lock_);
    pProvider = provider;
    fSet = 1;
}

void ProviderCache::ForgetProvider(const QUELMKSP_PROVIDER* provider) {
    std::lock_guard<platform::CriticalSection> guard(lock_);
    if (pProvider != provider) return;
    pProvider = nullptr;
    fSet = 0;
}

std::optional<platform::WideString> ProviderCache::CachedReaderName() {
    std::lock_guard<platform::CriticalSection> guard(lock_);
    if (!fSet || !pProvider) return std::nullopt;
    return platform::WideString(platform::ViewOf(pProvider->pszReaderName.get()));
}
