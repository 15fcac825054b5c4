#include "platform/sync.h"

#include <cerrno>
#include <mutex>
#include <system_error>
#include <thread>

namespace platform {

struct CriticalSection::Impl {
    std::recursive_mutex mutex;
};

CriticalSection::CriticalSection(unsigned) : impl_(std::make_unique<Impl>()) {}
CriticalSection::~CriticalSection() = default;
void CriticalSection::lock() {
    impl_->mutex.lock();
}
void CriticalSection::unlock() {
    impl_->mutex.unlock();
}
bool CriticalSection::try_lock() {
    return impl_->mutex.try_lock();
}

unsigned long StartDetachedThread(std::function<void()> work) {
    try {
        std::thread(std::move(work)).detach();
        return 0;
    } catch (const std::system_error& error) {
        return static_cast<unsigned long>(error.code().value());
    } catch (...) {
        return ENOMEM;
    }
}

}  // namespace platform
