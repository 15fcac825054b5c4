#include "pin/pin_manager.h"

#include <cstring>
#include <mutex>
#include <new>

#include "config/registry_paths.h"
#include "platform/debug_output.h"
#include "platform/registry.h"

namespace {

constexpr uint8_t kRecordMarker = 0x81;
constexpr uint32_t kMinRecordBytes = 8;
// The length travels in one byte of the record.
constexpr uint32_t kLongestPin = 255;

uint32_t RecordLength(uint32_t pinLength) {
    return (pinLength + 2 + platform::kProtectBlockSize) / platform::kProtectBlockSize *
           platform::kProtectBlockSize;
}

}  // namespace

bool PinCachingAllowed() {
    platform::WideChar value[16] = {};
    uint32_t size = sizeof value;
    long status =
        platform::registry::GetValue(config::kSdkKey, WIDE("PINCACHE"),
                                     platform::registry::kRestrictString, nullptr, value, &size);
    return status != platform::registry::kSuccess || platform::WideView(value) != WIDE("00000000");
}

PinCache::PinCache() : pLog(new (std::nothrow) DebugClass(false)) {}

PinCache::~PinCache() = default;

SECURITY_STATUS PinCache::UnlockBlock() {
    uint32_t error = 0;
    if (pbProtectedPin.Unlock(&error) || error == platform::kErrorNotLocked) return ERROR_SUCCESS;
    pLog->WriteHex("NTE_INTERNAL_ERROR: Failed to unlock memory block - ", error);
    return NTE_INTERNAL_ERROR;
}

// A block that cannot be locked is dropped rather than kept where it could
// be paged out.
SECURITY_STATUS PinCache::LockBlock() {
    uint32_t error = 0;
    if (pbProtectedPin.Lock(&error)) return ERROR_SUCCESS;
    pbProtectedPin.reset();
    cbProtectedPin = 0;
    pLog->WriteHex("Failed to lock memory block - ", error);
    return NTE_INTERNAL_ERROR;
}

SECURITY_STATUS PinCache::SetPIN(const uint8_t* pin, uint32_t length) {
    if (!pin || length == 0) return NTE_INVALID_PARAMETER;
    if (pbProtectedPin) {
        SECURITY_STATUS status = UnlockBlock();
        if (status != ERROR_SUCCESS) return status;
        pbProtectedPin.reset();
        cbProtectedPin = 0;
    }
    uint32_t needed = 0;
    SECURITY_STATUS status = Encrypt(pin, length, nullptr, &needed);
    if (status != ERROR_SUCCESS) {
        pLog->WriteLine("Error getting encrypted PIN length");
        return status;
    }
    if (!pbProtectedPin.Allocate(needed)) {
        pLog->WriteLine("Not enough memory to continue operation");
        return NTE_NO_MEMORY;
    }
    status = Encrypt(pin, length, pbProtectedPin.get(), &needed);
    if (status != ERROR_SUCCESS) {
        pbProtectedPin.reset();
        pLog->WriteLine("Error encrypting PIN");
        return status;
    }
    cbProtectedPin = needed;
    return LockBlock();
}

SECURITY_STATUS PinCache::GetPIN(uint8_t* buffer, uint32_t* length) {
    if (!length || !pbProtectedPin) return NTE_INVALID_PARAMETER;
    SECURITY_STATUS status = UnlockBlock();
    if (status != ERROR_SUCCESS) return status;
    uint32_t pinLength = 0;
    status = Decrypt(pbProtectedPin.get(), cbProtectedPin, nullptr, &pinLength);
    if (status != ERROR_SUCCESS) {
        pLog->WriteLine("Failed to get PIN length");
        return status;
    }
    if (!buffer) {
        *length = pinLength;
        return ERROR_SUCCESS;
    }
    if (*length < pinLength) {
        *length = pinLength;
        return NTE_BUFFER_TOO_SMALL;
    }
    status = Decrypt(pbProtectedPin.get(), cbProtectedPin, buffer, length);
    if (status != ERROR_SUCCESS) {
        pLog->WriteLine("Failed to decrypt PIN");
        return status;
    }
    return LockBlock();
}

SECURITY_STATUS PinCache::Encrypt(const uint8_t* data, uint32_t length, uint8_t* out,
                                  uint32_t* cbOut) {
    if (!data) {
        pLog->WriteLine("Encrypt - dataIn cannot be NULL");
        return NTE_INVALID_PARAMETER;
    }
    if (length == 0) {
        pLog->WriteLine("Encrypt - dataIn length cannot be zero");
        return NTE_INVALID_PARAMETER;
    }
    if (!cbOut) {
        pLog->WriteLine("Encrypt - dataOut length buffer cannot be NULL");
        return NTE_INVALID_PARAMETER;
    }
    // Longer PINs cannot be told by the record's length byte.
    if (length > kLongestPin) return NTE_INVALID_PARAMETER;
    uint32_t recordLength = RecordLength(length);
    if (!out) {
        pLog->WriteLine("Encrypt - Output buffer is NULL, returning output length");
        *cbOut = recordLength;
        return ERROR_SUCCESS;
    }
    if (*cbOut < recordLength) {
        pLog->WriteLine("Encrypt - Output buffer is too small.");
        *cbOut = recordLength;
        return NTE_BUFFER_TOO_SMALL;
    }
    platform::SecureBuffer<uint8_t> record;
    try {
        record = platform::SecureBuffer<uint8_t>(recordLength);
    } catch (const std::bad_alloc&) {
        return NTE_NO_MEMORY;
    }
    record[0] = kRecordMarker;
    record[1] = static_cast<uint8_t>(length);
    std::memcpy(record.get() + 2, data, length);
    uint32_t error = 0;
    if (!platform::ProtectMemory(record.get(), recordLength, &error)) {
        pLog->WriteHex("Encrypt - Failed to encrypt memory block - ", error);
        return static_cast<SECURITY_STATUS>(error);
    }
    std::memcpy(out, record.get(), recordLength);
    return ERROR_SUCCESS;
}

SECURITY_STATUS PinCache::Decrypt(const uint8_t* protectedRecord, uint32_t length, uint8_t* out,
                                  uint32_t* cbOut) {
    if (!protectedRecord || length < kMinRecordBytes || !cbOut) return NTE_INVALID_PARAMETER;
    platform::SecureBuffer<uint8_t> record =
        platform::SecureBuffer<uint8_t>::CopyOf(protectedRecord, length);
    if (!record) {
        pLog->WriteLine("Decrypt - not enough memory to continue operation");
        return NTE_NO_MEMORY;
    }
    uint32_t error = 0;
    if (!platform::UnprotectMemory(record.get(), length, &error)) {
        pLog->WriteHex("Decrypt - Failed to decrypt data - ", error);
        return static_cast<SECURITY_STATUS>(error);
    }
    uint32_t dataLength = record[1];
    if (!out) {
        pLog->WriteLine("Decrypt - Output buffer is NULL. Returning data length");
        *cbOut = dataLength;
        return ERROR_SUCCESS;
    }
    if (*cbOut < dataLength) {
        pLog->WriteLine("Decrypt - Output buffer size is too small");
        *cbOut = dataLength;
        return NTE_BUFFER_TOO_SMALL;
    }
    std::memcpy(out, record.get() + 2, dataLength);
    return ERROR_SUCCESS;
}

PinManager::PinManager() : pLog(new (std::nothrow) DebugClass(false)) {
    platform::DebugOutput(WIDE("PinManager ctor - Entry"));
    platform::DebugOutput(WIDE("PinManager ctor - Exit"));
}

SECURITY_STATUS PinManager::RetrievePINFromCache(const uint8_t* serial, uint8_t* buffer,
                                                 uint32_t* length) {
    if (!length) return NTE_INVALID_PARAMETER;
    pLog->WriteLine("PIN Manager - Retrieving PIN from PIN Cache");
    pLog->WriteBytes("pbSerial: ", serial, PinCache::kSerialBytes);
    pLog->WriteHex("cbSerial: ", PinCache::kSerialBytes);
    pLog->WriteLine("PIN Manager - Iterating through PIN caches");

    PinCache* match = nullptr;
    for (const auto& record : pool) {
        if (record->cbLabel == PinCache::kSerialBytes &&
            std::memcmp(record->label, serial, PinCache::kSerialBytes) == 0) {
            match = record.get();
            break;
        }
    }
    if (!match) {
        // The dialog that follows must run without the lock.
        lock.unlock();
        pLog->WriteLine("PIN Manager - PIN is not found");
        return NTE_NOT_FOUND;
    }
    if (!buffer) {
        pLog->WriteLine("PIN Manager - PIN buffer is NULL, returning PIN length");
        match->GetPIN(nullptr, length);
        return ERROR_SUCCESS;
    }
    platform::SecureBuffer<uint8_t> pin;
    try {
        pin = platform::SecureBuffer<uint8_t>(*length);
    } catch (const std::bad_alloc&) {
        return NTE_NO_MEMORY;
    }
    if (match->GetPIN(pin.get(), length) != ERROR_SUCCESS) {
        pLog->WriteLine("Failed to get PIN from cache");
        return NTE_NOT_FOUND;
    }
    std::memcpy(buffer, pin.get(), *length);
    return ERROR_SUCCESS;
}

SECURITY_STATUS PinManager::StorePINInCache(const uint8_t* serial, const uint8_t* pin,
                                            uint32_t length) {
    if (!serial || !pin || length == 0) return 0;
    pLog->WriteLine("Checking PIN caching setting");
    if (!PinCachingAllowed()) return NTE_NOT_SUPPORTED;
    pLog->WriteLine("Creating cache to store token PIN");
    std::unique_ptr<PinCache> record(new (std::nothrow) PinCache());
    if (!record) return NTE_NO_MEMORY;
    pLog->WriteLine("Setting cache label");
    std::memcpy(record->label, serial, PinCache::kSerialBytes);
    record->cbLabel = PinCache::kSerialBytes;
    pLog->WriteLine("Setting PIN");
    SECURITY_STATUS status = record->SetPIN(pin, length);
    if (status != ERROR_SUCCESS) {
        pLog->WriteHex("Unable to set PIN. Error code: ", static_cast<uint32_t>(status));
        return status;
    }
    pLog->WriteLine("Saving cache to pool");
    {
        // Another thread may be searching the pool under the lock.
        std::lock_guard<platform::CriticalSection> guard(lock);
        pool.push_back(std::move(record));
    }
    pLog->WriteLine("PIN securely saved");
    return 1;
}
