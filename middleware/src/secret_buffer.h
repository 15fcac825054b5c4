#pragma once

#include <cstddef>
#include <cstring>
#include <memory>

#include <openssl/crypto.h>

namespace quelm {

// A fixed-capacity byte buffer for PINs, key components and kept decryption results. Its memory
// is wiped before it is released, and it never reallocates, so no stale copy is left behind.
class SecretBuffer {
public:
    SecretBuffer() = default;
    explicit SecretBuffer(std::size_t capacity)
        : bytes_(capacity ? new unsigned char[capacity]() : nullptr),
          capacity_(capacity),
          size_(capacity) {}
    SecretBuffer(const void* data, std::size_t size) : SecretBuffer(size) {
        if (size) std::memcpy(bytes_.get(), data, size);
    }
    SecretBuffer(SecretBuffer&& other) noexcept { swap(other); }
    SecretBuffer& operator=(SecretBuffer&& other) noexcept {
        SecretBuffer moved(std::move(other));
        swap(moved);
        return *this;
    }
    SecretBuffer(const SecretBuffer&) = delete;
    SecretBuffer& operator=(const SecretBuffer&) = delete;
    ~SecretBuffer() { wipe(); }

    unsigned char* data() { return bytes_.get(); }
    const unsigned char* data() const { return bytes_.get(); }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }

    // Shortens the visible contents; the capacity and its wiping stay unchanged.
    void shrink(std::size_t size) {
        if (size < size_) size_ = size;
    }

    void wipe() {
        if (bytes_) OPENSSL_cleanse(bytes_.get(), capacity_);
        bytes_.reset();
        capacity_ = 0;
        size_ = 0;
    }

    bool equals(const void* data, std::size_t size) const {
        return size == size_ && (size == 0 || CRYPTO_memcmp(bytes_.get(), data, size) == 0);
    }

private:
    void swap(SecretBuffer& other) noexcept {
        std::swap(bytes_, other.bytes_);
        std::swap(capacity_, other.capacity_);
        std::swap(size_, other.size_);
    }

    std::unique_ptr<unsigned char[]> bytes_;
    std::size_t capacity_ = 0;
    std::size_t size_ = 0;
};

}  // namespace quelm
