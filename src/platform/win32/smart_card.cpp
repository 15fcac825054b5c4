#include "platform/smart_card.h"

#include <windows.h>

#include <winscard.h>

#include <cstddef>

namespace platform {

static_assert(sizeof(SCARD_READERSTATEW) == sizeof(::SCARD_READERSTATEW) &&
                  offsetof(SCARD_READERSTATEW, szReader) ==
                      offsetof(::SCARD_READERSTATEW, szReader) &&
                  offsetof(SCARD_READERSTATEW, dwCurrentState) ==
                      offsetof(::SCARD_READERSTATEW, dwCurrentState) &&
                  offsetof(SCARD_READERSTATEW, dwEventState) ==
                      offsetof(::SCARD_READERSTATEW, dwEventState) &&
                  offsetof(SCARD_READERSTATEW, cbAtr) == offsetof(::SCARD_READERSTATEW, cbAtr) &&
                  offsetof(SCARD_READERSTATEW, rgbAtr) == offsetof(::SCARD_READERSTATEW, rgbAtr),
              "the reader state is winscard's own");
static_assert(SCARD_STATE_EMPTY == kScardStateEmpty && SCARD_STATE_PRESENT == kScardStatePresent &&
                  SCARD_STATE_CHANGED == kScardStateChanged &&
                  SCARD_STATE_UNAVAILABLE == kScardStateUnavailable &&
                  SCARD_SCOPE_USER == kScardScopeUser,
              "winscard's values");

int32_t SCardEstablishContext(uint32_t dwScope, const void* pvReserved1, const void* pvReserved2,
                              SCARDCONTEXT* phContext) {
    ::SCARDCONTEXT context = 0;
    LONG rv = ::SCardEstablishContext(dwScope, pvReserved1, pvReserved2, &context);
    if (rv == SCARD_S_SUCCESS && phContext) *phContext = context;
    return rv;
}

int32_t SCardReleaseContext(SCARDCONTEXT hContext) {
    return ::SCardReleaseContext(hContext);
}

int32_t SCardListReadersW(SCARDCONTEXT hContext, const WideChar* mszGroups, WideChar* mszReaders,
                          uint32_t* pcchReaders) {
    DWORD length = pcchReaders ? *pcchReaders : 0;
    LONG rv = ::SCardListReadersW(hContext, mszGroups, mszReaders, pcchReaders ? &length : nullptr);
    if (pcchReaders) *pcchReaders = length;
    return rv;
}

int32_t SCardGetStatusChangeW(SCARDCONTEXT hContext, uint32_t dwTimeout,
                              SCARD_READERSTATEW* rgReaderStates, uint32_t cReaders) {
    return ::SCardGetStatusChangeW(
        hContext, dwTimeout, reinterpret_cast<::SCARD_READERSTATEW*>(rgReaderStates), cReaders);
}

int32_t SCardCancel(SCARDCONTEXT hContext) {
    return ::SCardCancel(hContext);
}

int32_t SCardFreeMemory(SCARDCONTEXT hContext, const void* pvMem) {
    return ::SCardFreeMemory(hContext, pvMem);
}

}  // namespace platform
