#include "provider/provider_context.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "platform/secure_zero.h"
#include "provider/handle_registry.h"
#include "provider/provider_cache.h"

void ProviderRecordDelete::operator()(QUELMKSP_PROVIDER* provider) const {
    // The cache may have taken the record before OpenProvider could fail.
    g_pProviderCache->ForgetProvider(provider);
    size_t length = provider->cbLength;
    provider->~QUELMKSP_PROVIDER();
    platform::SecureZero(provider, length);
    std::free(provider);
}

ProviderRecord AllocateProviderRecord(platform::WideView name) {
    size_t nameBytes = (name.size() + 1) * sizeof(platform::WideChar);
    size_t length = QUELMKSP_PROVIDER::kHeaderLength + nameBytes;
    void* memory = std::calloc(1, length);
    if (!memory) return nullptr;
    auto* provider = new (memory) QUELMKSP_PROVIDER{};
    provider->cbLength = static_cast<uint32_t>(length);
    provider->dwMagic = QUELMKSP_PROVIDER::kMagic;
    auto* nameCopy = reinterpret_cast<platform::WideChar*>(static_cast<uint8_t*>(memory) +
                                                           QUELMKSP_PROVIDER::kHeaderLength);
    std::memcpy(nameCopy, name.data(), name.size() * sizeof(platform::WideChar));
    provider->pszName = nameCopy;
    return ProviderRecord(provider);
}

QUELMKSP_PROVIDER* ProviderFromHandle(NCRYPT_PROV_HANDLE handle) {
    auto* provider = reinterpret_cast<QUELMKSP_PROVIDER*>(handle);
    if (!g_pHandles->Contains(provider, HandleKind::kProvider)) return nullptr;
    if (!provider || provider->cbLength < QUELMKSP_PROVIDER::kHeaderLength ||
        provider->dwMagic != QUELMKSP_PROVIDER::kMagic)
        return nullptr;
    return provider;
}
