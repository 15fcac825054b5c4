#include "platform/sync.h"

#include <windows.h>

namespace platform {

struct CriticalSection::Impl {
    CRITICAL_SECTION section;
};

CriticalSection::CriticalSection(unsigned spinCount) : impl_(std::make_unique<Impl>()) {
    InitializeCriticalSectionAndSpinCount(&impl_->section, spinCount);
}

CriticalSection::~CriticalSection() {
    DeleteCriticalSection(&impl_->section);
}
void CriticalSection::lock() {
    EnterCriticalSection(&impl_->section);
}
void CriticalSection::unlock() {
    LeaveCriticalSection(&impl_->section);
}
bool CriticalSection::try_lock() {
    return TryEnterCriticalSection(&impl_->section) != 0;
}

namespace {

DWORD WINAPI RunWork(LPVOID parameter) {
    std::unique_ptr<std::function<void()>> work(static_cast<std::function<void()>*>(parameter));
    (*work)();
    return 0;
}

}  // namespace

unsigned long StartDetachedThread(std::function<void()> work) {
    auto owned = std::make_unique<std::function<void()>>(std::move(work));
    HANDLE thread = CreateThread(nullptr, 0, &RunWork, owned.get(), 0, nullptr);
    if (!thread) return GetLastError();
    owned.release();
    CloseHandle(thread);
    return 0;
}

struct Thread::Impl {
    HANDLE handle = nullptr;
};

namespace {

DWORD WINAPI RunCountedWork(LPVOID parameter) {
    std::unique_ptr<std::function<uint32_t()>> work(
        static_cast<std::function<uint32_t()>*>(parameter));
    return (*work)();
}

}  // namespace

Thread::Thread(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

Thread::~Thread() {
    CloseHandle(impl_->handle);
}

std::unique_ptr<Thread> Thread::Start(std::function<uint32_t()> work, uint32_t* error) {
    auto owned = std::make_unique<std::function<uint32_t()>>(std::move(work));
    HANDLE handle = CreateThread(nullptr, 0, &RunCountedWork, owned.get(), 0, nullptr);
    if (!handle) {
        if (error) *error = GetLastError();
        return nullptr;
    }
    owned.release();
    auto impl = std::make_unique<Impl>();
    impl->handle = handle;
    return std::unique_ptr<Thread>(new Thread(std::move(impl)));
}

bool Thread::Wait(uint32_t milliseconds, uint32_t* exitCode) {
    if (WaitForSingleObject(impl_->handle, milliseconds) != WAIT_OBJECT_0) return false;
    DWORD code = 0;
    GetExitCodeThread(impl_->handle, &code);
    if (exitCode) *exitCode = code;
    return true;
}

void PinOwnModule() {
    HMODULE self = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_PIN,
                       reinterpret_cast<LPCWSTR>(&PinOwnModule), &self);
}

void StopBeforeExit(std::function<void()>) {}

}  // namespace platform
