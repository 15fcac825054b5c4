// The card monitor: a thread that waits for one change of the smart-card
// readers and, when a card was removed or its reader went away, withdraws
// the certificate contexts handed out for that reader.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/certificates.h"
#include "platform/smart_card.h"
#include "platform/sync.h"
#include "platform/wide_string.h"

class ReaderIdMap;

struct CardMonitor {
    struct CertificateEntry {
        uint32_t dwUniqueSlotId;
        // Null once withdrawn: the deletion frees the context.
        PCCERT_CONTEXT pCertContext;
    };

    CardMonitor() = default;
    // The process's own monitor is never destroyed; one that is (tests)
    // frees the contexts it still keeps.
    ~CardMonitor();
    CardMonitor(const CardMonitor&) = delete;
    CardMonitor& operator=(const CardMonitor&) = delete;

    std::unique_ptr<platform::Thread> hThread;
    std::atomic<uint32_t> fStarted{0};
    platform::SCARDCONTEXT hContext = 0;
    std::vector<platform::WideString> readerNames;
    std::vector<platform::SCARD_READERSTATEW> readerStates;
    ReaderIdMap* pReaderIds = nullptr;

    // Operations append on their threads while the monitor thread walks the
    // list; both go through these.
    void AppendCertificate(uint32_t readerId, PCCERT_CONTEXT context) {
        std::lock_guard<platform::CriticalSection> hold(certificatesLock);
        certificates.push_back({readerId, context});
    }
    template <typename Visit>
    void ForEachCertificate(Visit visit) {
        std::lock_guard<platform::CriticalSection> hold(certificatesLock);
        for (const CertificateEntry& entry : certificates) visit(entry);
    }
    // Deletes every context kept for the reader; failures are ignored.
    void WithdrawCertificates(uint32_t readerId);

    std::list<CertificateEntry> certificates;
    platform::CriticalSection certificatesLock;
    // Two first calls of GetKeyStorageInterface may start it side by side.
    std::mutex startLock;
};

extern CardMonitor* g_pCardMonitor;

// Starts the monitor of g_pCardMonitor, or of another one (tests). Returns
// 0, or the code of the call that failed.
uint32_t StartCardMonitor();
uint32_t StartCardMonitor(CardMonitor& monitor);

// The thread's work: one change notification, then the withdrawals.
uint32_t CardMonitorThread(CardMonitor& monitor);

// Ends a wait that is still going on, waits for the thread and releases the
// smart-card context. Called when the process ends (Linux) and by tests.
void StopCardMonitor(CardMonitor& monitor);
