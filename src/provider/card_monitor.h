// The card monitor's state: whether its thread has been started, and the
// certificate contexts handed out for each reader, which it withdraws when
// that reader's card is removed.
#pragma once

#include <atomic>
#include <cstdint>
#include <list>
#include <mutex>

#include "platform/certificates.h"
#include "platform/sync.h"

struct CardMonitor {
    struct CertificateEntry {
        uint32_t dwUniqueSlotId;
        PCCERT_CONTEXT pCertContext;
    };

    std::atomic<uint32_t> fStarted{0};

    // Operations append on their threads while the monitor thread walks the
    // list; both go through these two.
    void AppendCertificate(uint32_t readerId, PCCERT_CONTEXT context) {
        std::lock_guard<platform::CriticalSection> hold(certificatesLock);
        certificates.push_back({readerId, context});
    }
    template <typename Visit>
    void ForEachCertificate(Visit visit) {
        std::lock_guard<platform::CriticalSection> hold(certificatesLock);
        for (const CertificateEntry& entry : certificates) visit(entry);
    }

    std::list<CertificateEntry> certificates;
    platform::CriticalSection certificatesLock;
};

extern CardMonitor* g_pCardMonitor;
