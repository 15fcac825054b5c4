#include "platform/protected_memory.h"

#include <errno.h>
#include <openssl/evp.h>
#include <sys/mman.h>
#include <sys/random.h>

#include <cstring>
#include <memory>
#include <mutex>

namespace platform {
namespace {

// The per-process key: random, drawn once, kept in a locked page so that it
// never reaches swap.
class ProcessKey {
public:
    static const ProcessKey* Get() {
        static ProcessKey* key = new ProcessKey();
        return key->ready_ ? key : nullptr;
    }
    const unsigned char* bytes() const { return bytes_; }

private:
    ProcessKey() {
        void* page =
            mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (page == MAP_FAILED) return;
        mlock(page, kPage);
        madvise(page, kPage, MADV_DONTDUMP);
        bytes_ = static_cast<unsigned char*>(page);
        ready_ = getrandom(bytes_, kKeyBytes, 0) == static_cast<ssize_t>(kKeyBytes);
    }
    static constexpr size_t kPage = 4096;
    static constexpr size_t kKeyBytes = 32;
    unsigned char* bytes_ = nullptr;
    bool ready_ = false;
};

// AES-256 in CBC mode without padding: the length stays the same, as the
// Windows protection keeps it, and the same process always undoes it.
bool Transform(void* data, size_t length, bool encrypt, uint32_t* error) {
    const ProcessKey* key = ProcessKey::Get();
    if (!key || length % kProtectBlockSize) {
        *error = EINVAL;
        return false;
    }
    std::unique_ptr<EVP_CIPHER_CTX, void (*)(EVP_CIPHER_CTX*)> context(EVP_CIPHER_CTX_new(),
                                                                       &EVP_CIPHER_CTX_free);
    static const unsigned char kZeroIv[16] = {};
    auto* bytes = static_cast<unsigned char*>(data);
    int written = 0;
    bool ok =
        context &&
        EVP_CipherInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, key->bytes(), kZeroIv,
                          encrypt ? 1 : 0) == 1 &&
        EVP_CIPHER_CTX_set_padding(context.get(), 0) == 1 &&
        EVP_CipherUpdate(context.get(), bytes, &written, bytes, static_cast<int>(length)) == 1;
    if (!ok) *error = EIO;
    return ok;
}

}  // namespace

bool ProtectMemory(void* data, size_t length, uint32_t* error) {
    return Transform(data, length, true, error);
}

bool UnprotectMemory(void* data, size_t length, uint32_t* error) {
    return Transform(data, length, false, error);
}

bool LockPages(void* memory, size_t length, uint32_t* error) {
    if (mlock(memory, length) == 0) return true;
    *error = static_cast<uint32_t>(errno);
    return false;
}

bool UnlockPages(void* memory, size_t length, uint32_t* error) {
    if (munlock(memory, length) == 0) return true;
    *error = static_cast<uint32_t>(errno);
    return false;
}

bool RandomSource::Acquire(uint32_t*) {
    return true;
}

bool RandomSource::Generate(void* out, size_t length, uint32_t* error) {
    if (getrandom(out, length, 0) != static_cast<ssize_t>(length)) {
        *error = static_cast<uint32_t>(errno);
        return false;
    }
    return true;
}

bool RandomSource::Release(uint32_t*) {
    return true;
}

RandomSource::~RandomSource() = default;

}  // namespace platform
