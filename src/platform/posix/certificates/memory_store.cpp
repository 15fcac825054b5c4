#include <strings.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>

#include "certificate_internals.h"

namespace quelmcert {

// A store counts one reference for its open handle and one for every
// context whose hCertStore names it, so that a context outliving
// CertCloseStore still points at a live store.
class MemoryStore {
public:
    std::atomic<uint32_t> references{1};
    std::mutex mutex;
    // Each entry holds one reference on its context. Positions start at 1, so
    // that 0 means "before the first".
    std::map<uint64_t, CertificateContext*> entries;
    uint64_t nextPosition = 1;
};

void AddStoreReference(MemoryStore* store) {
    store->references.fetch_add(1, std::memory_order_relaxed);
}

void ReleaseStore(MemoryStore* store) {
    if (store->references.fetch_sub(1, std::memory_order_acq_rel) == 1) delete store;
}

namespace {

bool SameBlob(const CRYPT_INTEGER_BLOB& a, const CRYPT_INTEGER_BLOB& b) {
    return a.cbData == b.cbData &&
           (a.cbData == 0 || std::memcmp(a.pbData, b.pbData, a.cbData) == 0);
}

// crypt32 takes a certificate with the same issuer and serial number, or the
// same encoding, for the one already in the store.
bool SameCertificate(const ParsedCertificate& a, const ParsedCertificate& b) {
    if (&a == &b || a.Der() == b.Der()) return true;
    return SameBlob(a.Info().Issuer, b.Info().Issuer) &&
           SameBlob(a.Info().SerialNumber, b.Info().SerialNumber);
}

uint64_t Ticks(const FILETIME& time) {
    return (static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
}

bool ValidDisposition(DWORD disposition) {
    return disposition >= CERT_STORE_ADD_NEW &&
           disposition <= CERT_STORE_ADD_NEWER_INHERIT_PROPERTIES;
}

struct ContextRelease {
    void operator()(CertificateContext* context) const { Release(context); }
};
using ContextReference = std::unique_ptr<CertificateContext, ContextRelease>;

}  // namespace
}  // namespace quelmcert

using quelmcert::CertificateContext;
using quelmcert::ContextReference;
using quelmcert::FromHandle;
using quelmcert::MemoryStore;

extern "C" HCERTSTORE CertOpenStore(LPCSTR lpszStoreProvider, DWORD, void*, DWORD, const void*) {
    if (!lpszStoreProvider) {
        SetLastError(E_INVALIDARG);
        return nullptr;
    }
    // Predefined providers are small integers in the pointer; named ones are
    // strings, and "Memory" names the same provider.
    auto id = reinterpret_cast<uintptr_t>(lpszStoreProvider);
    bool memory = lpszStoreProvider == CERT_STORE_PROV_MEMORY ||
                  (id > 0xFFFF && strcasecmp(lpszStoreProvider, "Memory") == 0);
    if (!memory) {
        SetLastError(ERROR_CALL_NOT_IMPLEMENTED);
        return nullptr;
    }
    try {
        return new MemoryStore();
    } catch (const std::bad_alloc&) {
        SetLastError(E_OUTOFMEMORY);
        return nullptr;
    }
}

// Contexts still held outside stay valid until they are freed, also with
// CERT_CLOSE_STORE_FORCE_FLAG: freeing them under their holders, as Windows
// may, would only turn a leak into a use after free.
extern "C" BOOL CertCloseStore(HCERTSTORE hCertStore, DWORD dwFlags) {
    if (!hCertStore) return TRUE;
    auto* store = static_cast<MemoryStore*>(hCertStore);
    std::map<uint64_t, CertificateContext*> entries;
    {
        std::lock_guard<std::mutex> lock(store->mutex);
        entries.swap(store->entries);
    }
    for (auto& entry : entries) quelmcert::Release(entry.second);
    bool pending = (dwFlags & CERT_CLOSE_STORE_CHECK_FLAG) &&
                   store->references.load(std::memory_order_acquire) > 1;
    quelmcert::ReleaseStore(store);
    if (pending) {
        SetLastError(CRYPT_E_PENDING_CLOSE);
        return FALSE;
    }
    return TRUE;
}

extern "C" BOOL CertAddCertificateContextToStore(HCERTSTORE hCertStore, PCCERT_CONTEXT pCertContext,
                                                 DWORD dwAddDisposition,
                                                 PCCERT_CONTEXT* ppStoreContext) {
    if (ppStoreContext) *ppStoreContext = nullptr;
    if (!hCertStore || !pCertContext || !quelmcert::ValidDisposition(dwAddDisposition)) {
        SetLastError(E_INVALIDARG);
        return FALSE;
    }
    auto* store = static_cast<MemoryStore*>(hCertStore);
    const CertificateContext* source = FromHandle(pCertContext);
    ContextReference replaced;
    CertificateContext* result = nullptr;
    try {
        std::lock_guard<std::mutex> lock(store->mutex);
        auto existing = store->entries.end();
        if (dwAddDisposition != CERT_STORE_ADD_ALWAYS) {
            existing = std::find_if(store->entries.begin(), store->entries.end(), [&](auto& entry) {
                return quelmcert::SameCertificate(*entry.second->parsed, *source->parsed);
            });
        }
        bool newer = dwAddDisposition == CERT_STORE_ADD_NEWER ||
                     dwAddDisposition == CERT_STORE_ADD_NEWER_INHERIT_PROPERTIES;
        if (existing != store->entries.end()) {
            const CERT_INFO& old = existing->second->parsed->Info();
            if (dwAddDisposition == CERT_STORE_ADD_NEW ||
                (newer && quelmcert::Ticks(old.NotBefore) >=
                              quelmcert::Ticks(source->parsed->Info().NotBefore))) {
                SetLastError(CRYPT_E_EXISTS);
                return FALSE;
            }
            if (dwAddDisposition == CERT_STORE_ADD_USE_EXISTING) {
                result = existing->second;
            } else {
                // The replacement takes the old one's place in the order.
                result = quelmcert::NewContext(source->parsed, source->context.dwCertEncodingType,
                                               store, existing->first);
                replaced.reset(existing->second);
                existing->second = result;
            }
        } else {
            ContextReference added(quelmcert::NewContext(
                source->parsed, source->context.dwCertEncodingType, store, store->nextPosition));
            store->entries.emplace(store->nextPosition, added.get());
            ++store->nextPosition;
            result = added.release();
        }
        if (ppStoreContext) quelmcert::AddReference(result);
    } catch (const std::bad_alloc&) {
        SetLastError(E_OUTOFMEMORY);
        return FALSE;
    }
    if (ppStoreContext) *ppStoreContext = &result->context;
    return TRUE;
}

extern "C" PCCERT_CONTEXT CertEnumCertificatesInStore(HCERTSTORE hCertStore,
                                                      PCCERT_CONTEXT pPrevCertContext) {
    // The previous context is freed whatever happens.
    ContextReference previous(pPrevCertContext ? FromHandle(pPrevCertContext) : nullptr);
    if (!hCertStore || (previous && previous->context.hCertStore != hCertStore)) {
        SetLastError(E_INVALIDARG);
        return nullptr;
    }
    auto* store = static_cast<MemoryStore*>(hCertStore);
    CertificateContext* next = nullptr;
    {
        std::lock_guard<std::mutex> lock(store->mutex);
        auto found = store->entries.upper_bound(previous ? previous->position : 0);
        if (found != store->entries.end()) {
            next = found->second;
            quelmcert::AddReference(next);
        }
    }
    if (!next) {
        SetLastError(CRYPT_E_NOT_FOUND);
        return nullptr;
    }
    return &next->context;
}

extern "C" BOOL CertDeleteCertificateFromStore(PCCERT_CONTEXT pCertContext) {
    if (!pCertContext) {
        SetLastError(E_INVALIDARG);
        return FALSE;
    }
    // The caller's reference goes in every case, as with crypt32. A context
    // that is in no store, or has left it already, has nothing more to do.
    ContextReference context(FromHandle(pCertContext));
    auto* store = static_cast<MemoryStore*>(context->context.hCertStore);
    if (!store) return TRUE;
    ContextReference removed;
    {
        std::lock_guard<std::mutex> lock(store->mutex);
        auto entry = store->entries.find(context->position);
        if (entry != store->entries.end() && entry->second == context.get()) {
            removed.reset(entry->second);
            store->entries.erase(entry);
        }
    }
    return TRUE;
}
