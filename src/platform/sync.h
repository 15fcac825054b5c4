// Locks and threads.
#pragma once

#include <functional>
#include <memory>

namespace platform {

// A recursive lock: a critical section on Windows, a recursive mutex on Linux.
// It satisfies the Lockable requirements, so std::lock_guard works with it.
class CriticalSection {
public:
    explicit CriticalSection(unsigned spinCount = 0);
    ~CriticalSection();
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void lock();
    void unlock();
    bool try_lock();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Starts a thread that runs on its own until the work returns. Returns 0 on
// success or the platform's error code.
unsigned long StartDetachedThread(std::function<void()> work);

}  // namespace platform
