#include <new>

#include "platform/protected_memory.h"

namespace platform {

bool LockedBlock::Allocate(size_t length) {
    reset();
    try {
        buffer_ = SecureBuffer<uint8_t>(length);
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

bool LockedBlock::Lock(uint32_t* error) {
    if (!LockPages(buffer_.get(), buffer_.size(), error)) return false;
    locked_ = true;
    return true;
}

bool LockedBlock::Unlock(uint32_t* error) {
    if (!locked_) {
        *error = kErrorNotLocked;
        return false;
    }
    if (!UnlockPages(buffer_.get(), buffer_.size(), error)) return false;
    locked_ = false;
    return true;
}

void LockedBlock::reset() {
    uint32_t ignored = 0;
    if (locked_) Unlock(&ignored);
    buffer_.reset();
}

}  // namespace platform
