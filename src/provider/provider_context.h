// The provider context: the record behind a provider handle.
#pragma once

#include <cstdint>
#include <memory>

#include "keys/key_context.h"
#include "platform/secure_buffer.h"
#include "platform/sync.h"
#include "platform/wide_string.h"
#include "provider/ncrypt_provider.h"
#include "token/pkcs11.h"

struct QUELMKSP_PROVIDER {
    static constexpr uint32_t kMagic = 0x4D4C4551;  // "QELM"
    static constexpr uint32_t kHeaderLength = 128;

    uint32_t cbLength;
    uint32_t dwMagic;
    const platform::WideChar* pszName;  // the copy stored right after the record
    std::unique_ptr<uint8_t[]> pszContext;
    CK_SESSION_HANDLE hSession;
    std::unique_ptr<QUELMKSP_KEY[]> pObjectList;
    uint32_t cObjectList;
    // Entries pObjectList has room for; the list grows by doubling.
    uint32_t cObjectListCapacity;
    platform::SecureBuffer<platform::WideChar> pbPin;
    uint32_t cchPin;
    std::unique_ptr<platform::WideChar[]> pszReaderName;
    CK_SLOT_ID slotId;
    uint64_t hWnd;
    std::unique_ptr<platform::CriticalSection> pLock;
    uint32_t dwUniqueSlotId;
};

static_assert(sizeof(QUELMKSP_PROVIDER) <= QUELMKSP_PROVIDER::kHeaderLength,
              "the name is stored after the first 128 bytes");

// The record's owner until its handle is handed out.
struct ProviderRecordDelete {
    void operator()(QUELMKSP_PROVIDER* provider) const;
};
using ProviderRecord = std::unique_ptr<QUELMKSP_PROVIDER, ProviderRecordDelete>;

// Allocates a zeroed record of 128 bytes plus the name, with the name copied
// in. Returns null when memory runs out.
ProviderRecord AllocateProviderRecord(platform::WideView name);

// The record behind a handle, or null when the handle is not a live provider
// handle or its length or magic is wrong.
QUELMKSP_PROVIDER* ProviderFromHandle(NCRYPT_PROV_HANDLE handle);
