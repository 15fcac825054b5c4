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

}  // namespace platform
