// Locks and threads.
#pragma once

#include <cstdint>
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

// A thread whose end can be waited for. Dropping the object lets the thread
// run on by itself.
class Thread {
public:
    // Starts work at once. Null on failure, with the platform's error code
    // in *error.
    static std::unique_ptr<Thread> Start(std::function<uint32_t()> work, uint32_t* error);
    ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // Waits up to `milliseconds` for the work to return. True when it has,
    // with its result in *exitCode.
    bool Wait(uint32_t milliseconds, uint32_t* exitCode = nullptr);

private:
    struct Impl;
    explicit Thread(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

// Keeps the library that holds this code loaded until the process ends, so
// that a thread running its code can never outlive it.
void PinOwnModule();

// Registers work to run when the process ends normally, before the libraries
// this code uses are finalised, where other threads still run at that
// moment: on Linux, exit() runs the finalisers while every thread goes on.
// Windows ends the other threads before it detaches any library, so there
// the work is not needed and never runs.
void StopBeforeExit(std::function<void()> work);

}  // namespace platform
