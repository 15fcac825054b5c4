// The PIN cache: for each token the user logged in to during the life of
// the process, the PIN the token accepted, kept scrambled by the platform's
// memory protection in pages locked against paging. Also the lock and the
// dialog flag that serialise logins.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>

#include "diag/debug_class.h"
#include "platform/protected_memory.h"
#include "platform/sync.h"
#include "provider/ncrypt_provider.h"

class PinCache {
public:
    static constexpr uint32_t kSerialBytes = 16;

    PinCache();
    ~PinCache();
    PinCache(const PinCache&) = delete;
    PinCache& operator=(const PinCache&) = delete;

    SECURITY_STATUS SetPIN(const uint8_t* pin, uint32_t length);
    SECURITY_STATUS GetPIN(uint8_t* buffer, uint32_t* length);
    // Build and undo a protected PIN record: marker 0x81, the length, the
    // PIN, zeros up to a multiple of 16.
    SECURITY_STATUS Encrypt(const uint8_t* data, uint32_t length, uint8_t* out, uint32_t* cbOut);
    SECURITY_STATUS Decrypt(const uint8_t* record, uint32_t length, uint8_t* out, uint32_t* cbOut);

    uint8_t label[kSerialBytes] = {};
    uint32_t cbLabel = 0;
    platform::LockedBlock pbProtectedPin;
    uint32_t cbProtectedPin = 0;
    std::unique_ptr<DebugClass> pLog;

private:
    SECURITY_STATUS LockBlock();
    SECURITY_STATUS UnlockBlock();
};

class PinManager {
public:
    PinManager();
    PinManager(const PinManager&) = delete;
    PinManager& operator=(const PinManager&) = delete;

    // The caller holds lock. A lookup that finds no PIN leaves lock, so
    // that the dialog can run without it.
    SECURITY_STATUS RetrievePINFromCache(const uint8_t* serial, uint8_t* buffer, uint32_t* length);
    // 1 when stored, 0 when an argument is missing, else a failure status.
    SECURITY_STATUS StorePINInCache(const uint8_t* serial, const uint8_t* pin, uint32_t length);

    platform::CriticalSection lock{1024};
    // Set while a PIN dialog is open.
    std::atomic<uint32_t> pinCacheLock{0};
    std::list<std::unique_ptr<PinCache>> pool;
    std::unique_ptr<DebugClass> pLog;
};

extern PinManager* g_pPinManager;

// Whether the registry lets the dialog keep accepted PINs: only "PINCACHE"
// equal to "00000000" forbids it.
bool PinCachingAllowed();
