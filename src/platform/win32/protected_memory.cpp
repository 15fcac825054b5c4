#include "platform/protected_memory.h"

#include <windows.h>

#include <dpapi.h>
#include <wincrypt.h>

namespace platform {

bool ProtectMemory(void* data, size_t length, uint32_t* error) {
    if (CryptProtectMemory(data, static_cast<DWORD>(length), CRYPTPROTECTMEMORY_SAME_PROCESS))
        return true;
    *error = GetLastError();
    return false;
}

bool UnprotectMemory(void* data, size_t length, uint32_t* error) {
    if (CryptUnprotectMemory(data, static_cast<DWORD>(length), CRYPTPROTECTMEMORY_SAME_PROCESS))
        return true;
    *error = GetLastError();
    return false;
}

bool LockPages(void* memory, size_t length, uint32_t* error) {
    if (VirtualLock(memory, length)) return true;
    *error = GetLastError();
    return false;
}

bool UnlockPages(void* memory, size_t length, uint32_t* error) {
    if (VirtualUnlock(memory, length)) return true;
    *error = GetLastError();
    return false;
}

bool RandomSource::Acquire(uint32_t* error) {
    HCRYPTPROV provider = 0;
    if (!CryptAcquireContextW(&provider, nullptr, nullptr, PROV_RSA_FULL, CRYPT_VERIFYCONTEXT)) {
        *error = GetLastError();
        return false;
    }
    handle_ = provider;
    return true;
}

bool RandomSource::Generate(void* out, size_t length, uint32_t* error) {
    if (!CryptGenRandom(handle_, static_cast<DWORD>(length), static_cast<BYTE*>(out))) {
        *error = GetLastError();
        return false;
    }
    return true;
}

bool RandomSource::Release(uint32_t* error) {
    HCRYPTPROV provider = handle_;
    handle_ = 0;
    if (!CryptReleaseContext(provider, 0)) {
        *error = GetLastError();
        return false;
    }
    return true;
}

RandomSource::~RandomSource() {
    if (handle_) CryptReleaseContext(handle_, 0);
}

}  // namespace platform
