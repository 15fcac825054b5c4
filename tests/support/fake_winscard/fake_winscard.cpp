// A stand-in for winscard.dll under Wine, whose own winscard is a stub: a
// smart-card service with three fixed readers, so that the card selection
// dialog has something to list. Test equipment only; the runner loads it
// in place of Wine's when a test asks for it (winscard=n).
#include <windows.h>

#include <winscard.h>

#include <cstring>

namespace {

// Not in sorted order, so that the dialog's list has to sort them.
const wchar_t kReaders[] = L"Virtual PCD 00 01\0Beta Reader\0alpha reader\0";
constexpr DWORD kReadersLength = sizeof kReaders / sizeof kReaders[0];
constexpr SCARDCONTEXT kContext = 0x5C;

}  // namespace

extern "C" {

LONG WINAPI SCardEstablishContext(DWORD, LPCVOID, LPCVOID, LPSCARDCONTEXT context) {
    if (!context) return SCARD_E_INVALID_PARAMETER;
    *context = kContext;
    return SCARD_S_SUCCESS;
}

LONG WINAPI SCardReleaseContext(SCARDCONTEXT context) {
    return context == kContext ? SCARD_S_SUCCESS : SCARD_E_INVALID_HANDLE;
}

LONG WINAPI SCardListReadersW(SCARDCONTEXT context, LPCWSTR, LPWSTR readers, LPDWORD length) {
    if (context != kContext) return SCARD_E_INVALID_HANDLE;
    if (!length) return SCARD_E_INVALID_PARAMETER;
    if (*length == SCARD_AUTOALLOCATE) {
        if (!readers) return SCARD_E_INVALID_PARAMETER;
        void* copy = HeapAlloc(GetProcessHeap(), 0, sizeof kReaders);
        if (!copy) return SCARD_E_NO_MEMORY;
        std::memcpy(copy, kReaders, sizeof kReaders);
        *reinterpret_cast<LPWSTR*>(readers) = static_cast<LPWSTR>(copy);
    } else if (readers) {
        if (*length < kReadersLength) {
            *length = kReadersLength;
            return SCARD_E_INSUFFICIENT_BUFFER;
        }
        std::memcpy(readers, kReaders, sizeof kReaders);
    }
    *length = kReadersLength;
    return SCARD_S_SUCCESS;
}

// Waiting for changes is not served: a monitor started on this service
// ends at once.
LONG WINAPI SCardGetStatusChangeW(SCARDCONTEXT, DWORD, LPSCARD_READERSTATEW, DWORD) {
    return SCARD_E_NO_SERVICE;
}

LONG WINAPI SCardCancel(SCARDCONTEXT) {
    return SCARD_S_SUCCESS;
}

LONG WINAPI SCardFreeMemory(SCARDCONTEXT, LPCVOID memory) {
    HeapFree(GetProcessHeap(), 0, const_cast<LPVOID>(memory));
    return SCARD_S_SUCCESS;
}

}  // extern "C"
