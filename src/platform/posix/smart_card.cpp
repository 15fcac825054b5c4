#include "platform/smart_card.h"

#include <PCSC/winscard.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/text.h"

// pcsc-lite's DWORD and LONG are the size of a long, and its reader names
// are UTF-8. Its codes have winscard's values, in the low 32 bits.
namespace platform {
namespace {

int32_t Code(LONG rv) {
    return static_cast<int32_t>(static_cast<uint32_t>(rv));
}

::SCARDCONTEXT Native(SCARDCONTEXT context) {
    return static_cast<::SCARDCONTEXT>(context);
}

// A multi-string of UTF-8 names as UTF-16, with its final NUL.
WideString WidenMultiString(const char* names, size_t length) {
    WideString wide;
    for (size_t at = 0; at < length && names[at];) {
        std::string_view name(names + at);
        wide += FromUtf8(name);
        wide.push_back(0);
        at += name.size() + 1;
    }
    wide.push_back(0);
    if (wide.size() == 1) wide.push_back(0);
    return wide;
}

std::string NarrowMultiString(const WideChar* names) {
    std::string narrow;
    for (const WideChar* at = names; *at;) {
        WideView name(at);
        narrow += ToUtf8(name);
        narrow.push_back('\0');
        at += name.size() + 1;
    }
    narrow.push_back('\0');
    return narrow;
}

// Frees what pcsc-lite allocated, on every path.
struct PcscMemory {
    ::SCARDCONTEXT context;
    char* names = nullptr;
    ~PcscMemory() {
        if (names) ::SCardFreeMemory(context, names);
    }
};

}  // namespace

int32_t SCardEstablishContext(uint32_t dwScope, const void* pvReserved1, const void* pvReserved2,
                              SCARDCONTEXT* phContext) {
    if (!phContext) return Code(SCARD_E_INVALID_PARAMETER);
    ::SCARDCONTEXT context = 0;
    LONG rv = ::SCardEstablishContext(dwScope, pvReserved1, pvReserved2, &context);
    if (rv == SCARD_S_SUCCESS) *phContext = static_cast<SCARDCONTEXT>(context);
    return Code(rv);
}

int32_t SCardReleaseContext(SCARDCONTEXT hContext) {
    return Code(::SCardReleaseContext(Native(hContext)));
}

int32_t SCardListReadersW(SCARDCONTEXT hContext, const WideChar* mszGroups, WideChar* mszReaders,
                          uint32_t* pcchReaders) {
    if (!pcchReaders) return Code(SCARD_E_INVALID_PARAMETER);
    std::string groups = mszGroups ? NarrowMultiString(mszGroups) : std::string();
    PcscMemory narrow{Native(hContext)};
    DWORD narrowLength = SCARD_AUTOALLOCATE;
    LONG rv = ::SCardListReaders(Native(hContext), mszGroups ? groups.c_str() : nullptr,
                                 reinterpret_cast<char*>(&narrow.names), &narrowLength);
    if (rv != SCARD_S_SUCCESS) {
        narrow.names = nullptr;
        return Code(rv);
    }
    WideString wide = WidenMultiString(narrow.names, narrowLength);
    const auto needed = static_cast<uint32_t>(wide.size());

    if (*pcchReaders == kScardAutoAllocate) {
        if (!mszReaders) return Code(SCARD_E_INVALID_PARAMETER);
        auto* copy = static_cast<WideChar*>(std::malloc(wide.size() * sizeof(WideChar)));
        if (!copy) return kScardENoMemory;
        std::copy(wide.begin(), wide.end(), copy);
        *reinterpret_cast<WideChar**>(mszReaders) = copy;
    } else if (mszReaders) {
        if (*pcchReaders < needed) {
            *pcchReaders = needed;
            return kScardEInsufficientBuffer;
        }
        std::copy(wide.begin(), wide.end(), mszReaders);
    }
    *pcchReaders = needed;
    return kScardSuccess;
}

int32_t SCardGetStatusChangeW(SCARDCONTEXT hContext, uint32_t dwTimeout,
                              SCARD_READERSTATEW* rgReaderStates, uint32_t cReaders) {
    if (cReaders && !rgReaderStates) return Code(SCARD_E_INVALID_PARAMETER);
    std::vector<std::string> names(cReaders);
    std::vector<::SCARD_READERSTATE> states(cReaders);
    for (uint32_t i = 0; i < cReaders; ++i) {
        names[i] = ToUtf8(ViewOf(rgReaderStates[i].szReader));
        states[i].szReader = names[i].c_str();
        states[i].pvUserData = rgReaderStates[i].pvUserData;
        states[i].dwCurrentState = rgReaderStates[i].dwCurrentState;
    }
    // pcsc-lite's INFINITE is the same all-ones value, as a long.
    DWORD timeout = dwTimeout == kScardInfinite ? INFINITE : dwTimeout;
    LONG rv = ::SCardGetStatusChange(Native(hContext), timeout, states.data(), cReaders);
    if (rv != SCARD_S_SUCCESS) return Code(rv);
    for (uint32_t i = 0; i < cReaders; ++i) {
        SCARD_READERSTATEW& out = rgReaderStates[i];
        out.dwEventState = static_cast<uint32_t>(states[i].dwEventState);
        out.cbAtr = static_cast<uint32_t>(
            std::min<DWORD>(states[i].cbAtr, std::min(sizeof out.rgbAtr, sizeof states[i].rgbAtr)));
        std::memcpy(out.rgbAtr, states[i].rgbAtr, out.cbAtr);
    }
    return kScardSuccess;
}

int32_t SCardCancel(SCARDCONTEXT hContext) {
    return Code(::SCardCancel(Native(hContext)));
}

int32_t SCardFreeMemory(SCARDCONTEXT, const void* pvMem) {
    // Only the W functions above hand out memory, and they take it from malloc.
    std::free(const_cast<void*>(pvMem));
    return kScardSuccess;
}

}  // namespace platform
