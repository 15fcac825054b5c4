// Memory for secrets at rest: a block that can be locked against paging,
// and protection that scrambles a block for the current process only.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/secure_buffer.h"

namespace platform {

// Protection works on whole blocks of this many bytes.
inline constexpr size_t kProtectBlockSize = 16;

// Scrambles length bytes in place so that only this process can read them
// back; length must be a multiple of kProtectBlockSize. On failure returns
// false with the platform's error code in *error.
bool ProtectMemory(void* data, size_t length, uint32_t* error);
bool UnprotectMemory(void* data, size_t length, uint32_t* error);

// Keeps pages in memory, or lets them be paged again; false with the
// platform's error code when the call fails.
bool LockPages(void* memory, size_t length, uint32_t* error);
bool UnlockPages(void* memory, size_t length, uint32_t* error);

// The error code that unlocking memory that is not locked reports.
inline constexpr uint32_t kErrorNotLocked = 158;

// An owned block that may be locked in memory; it is wiped and unlocked
// before it is released.
class LockedBlock {
public:
    LockedBlock() = default;
    ~LockedBlock() { reset(); }
    LockedBlock(const LockedBlock&) = delete;
    LockedBlock& operator=(const LockedBlock&) = delete;

    // A zeroed block; false when memory runs out.
    bool Allocate(size_t length);
    // Returns false with the platform's error code when the call fails.
    bool Lock(uint32_t* error);
    bool Unlock(uint32_t* error);
    void reset();

    uint8_t* get() const { return buffer_.get(); }
    size_t size() const { return buffer_.size(); }
    explicit operator bool() const { return static_cast<bool>(buffer_); }

private:
    SecureBuffer<uint8_t> buffer_;
    bool locked_ = false;
};

// A source of cryptographically strong random bytes, opened and closed
// around its use as the Windows one must be.
class RandomSource {
public:
    // Each returns false with the platform's error code in *error.
    bool Acquire(uint32_t* error);
    bool Generate(void* out, size_t length, uint32_t* error);
    bool Release(uint32_t* error);
    ~RandomSource();

private:
    uintptr_t handle_ = 0;
};

}  // namespace platform
