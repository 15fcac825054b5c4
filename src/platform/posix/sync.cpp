#include "platform/sync.h"

#include <dlfcn.h>
#include <pthread.h>

#include <cerrno>
#include <ctime>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

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

struct Thread::Impl {
    pthread_t thread{};
    bool joined = false;
    uint32_t exitCode = 0;
};

namespace {

void* RunThread(void* parameter) {
    std::unique_ptr<std::function<uint32_t()>> work(
        static_cast<std::function<uint32_t()>*>(parameter));
    return reinterpret_cast<void*>(static_cast<uintptr_t>((*work)()));
}

}  // namespace

Thread::Thread(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

Thread::~Thread() {
    if (!impl_->joined) pthread_detach(impl_->thread);
}

std::unique_ptr<Thread> Thread::Start(std::function<uint32_t()> work, uint32_t* error) {
    auto impl = std::make_unique<Impl>();
    auto owned = std::make_unique<std::function<uint32_t()>>(std::move(work));
    int rv = pthread_create(&impl->thread, nullptr, &RunThread, owned.get());
    if (rv != 0) {
        if (error) *error = static_cast<uint32_t>(rv);
        return nullptr;
    }
    owned.release();
    return std::unique_ptr<Thread>(new Thread(std::move(impl)));
}

bool Thread::Wait(uint32_t milliseconds, uint32_t* exitCode) {
    if (!impl_->joined) {
        timespec deadline{};
        clock_gettime(CLOCK_REALTIME, &deadline);
        deadline.tv_sec += milliseconds / 1000;
        deadline.tv_nsec += static_cast<long>(milliseconds % 1000) * 1000000L;
        if (deadline.tv_nsec >= 1000000000L) {
            deadline.tv_sec += 1;
            deadline.tv_nsec -= 1000000000L;
        }
        void* result = nullptr;
        if (pthread_timedjoin_np(impl_->thread, &result, &deadline) != 0) return false;
        impl_->joined = true;
        impl_->exitCode = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(result));
    }
    if (exitCode) *exitCode = impl_->exitCode;
    return true;
}

void PinOwnModule() {
    Dl_info info{};
    if (!dladdr(reinterpret_cast<void*>(&PinOwnModule), &info) || !info.dli_fname) return;
    // The reference is kept on purpose: RTLD_NODELETE marks the library for
    // the life of the process.
    dlopen(info.dli_fname, RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
}

namespace {

// Destroyed by this library's finaliser, which runs before those of the
// libraries it depends on.
class ExitWork {
public:
    ~ExitWork() {
        std::vector<std::function<void()>> work;
        {
            std::lock_guard<std::mutex> hold(lock_);
            work.swap(work_);
        }
        for (auto& step : work) step();
    }
    void Add(std::function<void()> step) {
        std::lock_guard<std::mutex> hold(lock_);
        work_.push_back(std::move(step));
    }

private:
    std::mutex lock_;
    std::vector<std::function<void()>> work_;
};

ExitWork g_exitWork;

}  // namespace

void StopBeforeExit(std::function<void()> work) {
    g_exitWork.Add(std::move(work));
}

}  // namespace platform
