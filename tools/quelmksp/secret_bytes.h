// Bytes that may hold a PIN, a plaintext or anything else worth wiping.
// The allocator zeroes every block it gives back, so the copies a vector
// leaves behind when it grows are wiped too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <vector>

#include "platform/secure_zero.h"

template <typename T>
struct WipingAllocator {
    using value_type = T;

    WipingAllocator() = default;
    template <typename U>
    WipingAllocator(const WipingAllocator<U>&) {}

    T* allocate(size_t count) { return static_cast<T*>(::operator new(count * sizeof(T))); }
    void deallocate(T* block, size_t count) {
        platform::SecureZero(block, count * sizeof(T));
        ::operator delete(block);
    }

    template <typename U>
    bool operator==(const WipingAllocator<U>&) const {
        return true;
    }
};

using SecretBytes = std::vector<uint8_t, WipingAllocator<uint8_t>>;
