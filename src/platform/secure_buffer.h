// An owning buffer for secrets and key material: it is overwritten with
// zeros whenever its contents are released, however that happens.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "platform/secure_zero.h"

namespace platform {

template <typename T>
class SecureBuffer {
public:
    SecureBuffer() = default;
    // A zeroed buffer of count elements. Throws std::bad_alloc.
    explicit SecureBuffer(size_t count) : data_(new T[count]()), size_(count) {}
    SecureBuffer(const T* source, size_t count) : SecureBuffer(count) {
        if (count) std::memcpy(data_.get(), source, count * sizeof(T));
    }
    SecureBuffer(SecureBuffer&& other) noexcept
        : data_(std::move(other.data_)), size_(std::exchange(other.size_, 0)) {}
    SecureBuffer& operator=(SecureBuffer&& other) noexcept {
        if (this != &other) {
            reset();
            data_ = std::move(other.data_);
            size_ = std::exchange(other.size_, 0);
        }
        return *this;
    }
    SecureBuffer(const SecureBuffer&) = delete;
    SecureBuffer& operator=(const SecureBuffer&) = delete;
    ~SecureBuffer() { reset(); }

    // Like the constructor, but reports a failed allocation as an empty
    // buffer instead of throwing.
    static SecureBuffer CopyOf(const T* source, size_t count) noexcept {
        SecureBuffer buffer;
        if (!source || count == 0) return buffer;
        buffer.data_.reset(new (std::nothrow) T[count]);
        if (!buffer.data_) return buffer;
        buffer.size_ = count;
        std::memcpy(buffer.data_.get(), source, count * sizeof(T));
        return buffer;
    }

    void reset() noexcept {
        if (data_) SecureZero(data_.get(), size_ * sizeof(T));
        data_.reset();
        size_ = 0;
    }

    T* get() const { return data_.get(); }
    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    explicit operator bool() const { return data_ != nullptr; }
    T& operator[](size_t i) const { return data_[i]; }

private:
    std::unique_ptr<T[]> data_;
    size_t size_ = 0;
};

}  // namespace platform
