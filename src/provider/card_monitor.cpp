#include "provider/card_monitor.h"

#include "platform/last_error.h"
#include "provider/reader_ids.h"

namespace {

// A cancelled wait returns at once; this bounds the time the process end
// may take if the service does not answer.
constexpr uint32_t kStopWaitMilliseconds = 3000;

bool CardWentAway(uint32_t eventState) {
    return (eventState & platform::kScardStateChanged) &&
           (eventState & (platform::kScardStateEmpty | platform::kScardStateUnavailable));
}

}  // namespace

CardMonitor::~CardMonitor() {
    for (CertificateEntry& entry : certificates)
        if (entry.pCertContext) CertFreeCertificateContext(entry.pCertContext);
}

void CardMonitor::WithdrawCertificates(uint32_t readerId) {
    std::lock_guard<platform::CriticalSection> hold(certificatesLock);
    for (CertificateEntry& entry : certificates) {
        if (entry.dwUniqueSlotId != readerId || !entry.pCertContext) continue;
        // The deletion frees the context whatever its outcome.
        if (!CertDeleteCertificateFromStore(entry.pCertContext)) platform::GetLastError();
        entry.pCertContext = nullptr;
    }
}

uint32_t StartCardMonitor() {
    uint32_t rv = StartCardMonitor(*g_pCardMonitor);
    if (rv == 0) {
        // Whichever monitor the process has at its end: tests put their own
        // in place for a while.
        static std::once_flag registered;
        std::call_once(registered,
                       [] { platform::StopBeforeExit([] { StopCardMonitor(*g_pCardMonitor); }); });
    }
    return rv;
}

uint32_t StartCardMonitor(CardMonitor& monitor) {
    std::lock_guard<std::mutex> hold(monitor.startLock);
    if (monitor.fStarted) return 0;

    platform::SCARDCONTEXT context = 0;
    int32_t rv =
        platform::SCardEstablishContext(platform::kScardScopeUser, nullptr, nullptr, &context);
    if (rv != platform::kScardSuccess) return static_cast<uint32_t>(rv);
    // A failed start leaves nothing established behind; the next
    // GetKeyStorageInterface starts again from scratch.
    struct ReleaseUnlessKept {
        platform::SCARDCONTEXT context;
        bool kept = false;
        ~ReleaseUnlessKept() {
            if (!kept) platform::SCardReleaseContext(context);
        }
    } guard{context};

    platform::ReaderList readers;
    rv = readers.List(context);
    if (rv != platform::kScardSuccess) return static_cast<uint32_t>(rv);

    monitor.readerNames.clear();
    readers.ForEach([&](platform::WideView name) { monitor.readerNames.emplace_back(name); });
    monitor.readerStates.assign(monitor.readerNames.size(), platform::SCARD_READERSTATEW{});
    for (size_t i = 0; i < monitor.readerNames.size(); ++i)
        monitor.readerStates[i].szReader = monitor.readerNames[i].c_str();

    rv = platform::SCardGetStatusChangeW(context, 0, monitor.readerStates.data(),
                                         static_cast<uint32_t>(monitor.readerStates.size()));
    if (rv != platform::kScardSuccess) return static_cast<uint32_t>(rv);
    for (platform::SCARD_READERSTATEW& state : monitor.readerStates) {
        state.dwCurrentState = state.dwEventState;
        state.dwEventState = 0;
    }

    monitor.hContext = context;
    monitor.pReaderIds = g_pReaderIds;
    // The thread may still wait when the library would be unloaded: the
    // library stays loaded for the life of the process instead.
    platform::PinOwnModule();
    uint32_t error = 0;
    monitor.hThread =
        platform::Thread::Start([&monitor] { return CardMonitorThread(monitor); }, &error);
    if (!monitor.hThread) {
        monitor.hContext = 0;
        return error;
    }
    guard.kept = true;
    monitor.fStarted = 1;
    return 0;
}

uint32_t CardMonitorThread(CardMonitor& monitor) {
    int32_t rv = platform::SCardGetStatusChangeW(
        monitor.hContext, platform::kScardInfinite, monitor.readerStates.data(),
        static_cast<uint32_t>(monitor.readerStates.size()));
    if (rv != platform::kScardSuccess) return static_cast<uint32_t>(rv);
    for (const platform::SCARD_READERSTATEW& state : monitor.readerStates) {
        if (!CardWentAway(state.dwEventState)) continue;
        uint32_t readerId = monitor.pReaderIds->GetUniqueSlotId(state.szReader);
        monitor.WithdrawCertificates(readerId);
    }
    return 0;
}

void StopCardMonitor(CardMonitor& monitor) {
    std::lock_guard<std::mutex> hold(monitor.startLock);
    if (!monitor.hThread) return;
    platform::SCardCancel(monitor.hContext);
    // A thread that does not end keeps its context: it may still use it.
    if (!monitor.hThread->Wait(kStopWaitMilliseconds)) return;
    platform::SCardReleaseContext(monitor.hContext);
    monitor.hContext = 0;
    monitor.hThread.reset();
}
