// The smart-card service (PC/SC) with winscard's wide-character functions:
// winscard itself on Windows, pcsc-lite on Linux. Reader names are UTF-16
// here; pcsc-lite's UTF-8 names are converted both ways, so a name read
// from SCardListReadersW names the same reader in SCardGetStatusChangeW.
#pragma once

#include <cstdint>

#include "platform/wide_string.h"

namespace platform {

using SCARDCONTEXT = uintptr_t;

// winscard's SCARD_READERSTATEW, field for field.
struct SCARD_READERSTATEW {
    const WideChar* szReader;
    void* pvUserData;
    uint32_t dwCurrentState;
    uint32_t dwEventState;
    uint32_t cbAtr;
    uint8_t rgbAtr[36];
};

inline constexpr uint32_t kScardScopeUser = 0;
// As a length: the service allocates the result, which SCardFreeMemory
// releases. As a timeout: wait without end.
inline constexpr uint32_t kScardAutoAllocate = 0xFFFFFFFF;
inline constexpr uint32_t kScardInfinite = 0xFFFFFFFF;

inline constexpr uint32_t kScardStateUnaware = 0x0000;
inline constexpr uint32_t kScardStateChanged = 0x0002;
inline constexpr uint32_t kScardStateUnavailable = 0x0008;
inline constexpr uint32_t kScardStateEmpty = 0x0010;
inline constexpr uint32_t kScardStatePresent = 0x0020;

inline constexpr int32_t kScardSuccess = 0;
inline constexpr int32_t kScardECancelled = static_cast<int32_t>(0x80100002);
inline constexpr int32_t kScardEInsufficientBuffer = static_cast<int32_t>(0x80100008);
inline constexpr int32_t kScardETimeout = static_cast<int32_t>(0x8010000A);
inline constexpr int32_t kScardENoMemory = static_cast<int32_t>(0x80100006);
inline constexpr int32_t kScardENoService = static_cast<int32_t>(0x8010001D);
inline constexpr int32_t kScardENoReadersAvailable = static_cast<int32_t>(0x8010002E);

int32_t SCardEstablishContext(uint32_t dwScope, const void* pvReserved1, const void* pvReserved2,
                              SCARDCONTEXT* phContext);
int32_t SCardReleaseContext(SCARDCONTEXT hContext);
// mszGroups null: all readers. With *pcchReaders == kScardAutoAllocate,
// mszReaders is a WideChar** that receives a multi-string for
// SCardFreeMemory.
int32_t SCardListReadersW(SCARDCONTEXT hContext, const WideChar* mszGroups, WideChar* mszReaders,
                          uint32_t* pcchReaders);
int32_t SCardGetStatusChangeW(SCARDCONTEXT hContext, uint32_t dwTimeout,
                              SCARD_READERSTATEW* rgReaderStates, uint32_t cReaders);
// Ends a wait of SCardGetStatusChangeW on the context, from another thread,
// with kScardECancelled.
int32_t SCardCancel(SCARDCONTEXT hContext);
int32_t SCardFreeMemory(SCARDCONTEXT hContext, const void* pvMem);

// The readers of a multi-string, and releasing one the service allocated.
class ReaderList {
public:
    ReaderList() = default;
    ~ReaderList() { Reset(); }
    ReaderList(const ReaderList&) = delete;
    ReaderList& operator=(const ReaderList&) = delete;

    // SCardListReadersW over all groups, the service allocating the names.
    int32_t List(SCARDCONTEXT context) {
        Reset();
        uint32_t length = kScardAutoAllocate;
        int32_t rv =
            SCardListReadersW(context, nullptr, reinterpret_cast<WideChar*>(&names_), &length);
        if (rv != kScardSuccess) {
            names_ = nullptr;
            return rv;
        }
        context_ = context;
        length_ = length;
        return rv;
    }
    // The multi-string: names ending in NUL, then one more NUL.
    const WideChar* names() const { return names_; }
    uint32_t length() const { return length_; }

    template <typename Visit>
    void ForEach(Visit visit) const {
        if (!names_) return;
        for (const WideChar* at = names_; at < names_ + length_ && *at;) {
            WideView name(at);
            visit(name);
            at += name.size() + 1;
        }
    }

private:
    void Reset() {
        if (names_) SCardFreeMemory(context_, names_);
        names_ = nullptr;
        length_ = 0;
    }
    SCARDCONTEXT context_ = 0;
    WideChar* names_ = nullptr;
    uint32_t length_ = 0;
};

}  // namespace platform
