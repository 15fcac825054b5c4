// What lies behind the handles of libquelmcert.
#pragma once

#include <openssl/crypto.h>
#include <openssl/x509.h>

#include <atomic>
#include <cstddef>
#include <list>
#include <memory>
#include <new>
#include <type_traits>
#include <vector>

#include "quelmcert.h"

namespace quelmcert {

// Certificate bytes and everything decoded from them are zeroed before their
// memory goes back to the heap.
template <class T>
struct WipingAllocator {
    using value_type = T;
    WipingAllocator() = default;
    template <class U>
    WipingAllocator(const WipingAllocator<U>&) {}
    T* allocate(size_t count) { return static_cast<T*>(::operator new(count * sizeof(T))); }
    void deallocate(T* memory, size_t count) {
        OPENSSL_cleanse(memory, count * sizeof(T));
        ::operator delete(memory);
    }
    template <class U>
    bool operator==(const WipingAllocator<U>&) const {
        return true;
    }
};

using Bytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;
using Utf16 = std::vector<char16_t, WipingAllocator<char16_t>>;

struct X509Free {
    void operator()(X509* certificate) const { X509_free(certificate); }
};

// One certificate as parsed once. It never changes after Parse, so contexts
// on several threads share it without a lock.
class ParsedCertificate {
public:
    // Null with *error set when the bytes are not exactly one certificate.
    static std::shared_ptr<const ParsedCertificate> Parse(const BYTE* der, DWORD length,
                                                          DWORD* error);

    const Bytes& Der() const { return der_; }
    const CERT_INFO& Info() const { return info_; }
    const X509* Certificate() const { return certificate_.get(); }

private:
    ParsedCertificate() = default;
    bool Decode();
    // Keeps bytes for the life of the certificate; CERT_INFO points into them.
    BYTE* Keep(Bytes bytes);
    BYTE* KeepObjectId(const ASN1_OBJECT* object);
    void FillAlgorithm(const X509_ALGOR* algorithm, CRYPT_ALGORITHM_IDENTIFIER& out);
    void FillBits(const ASN1_BIT_STRING* bits, CRYPT_BIT_BLOB& out);

    Bytes der_;
    std::unique_ptr<X509, X509Free> certificate_;
    CERT_INFO info_{};
    std::list<Bytes> kept_;
    std::vector<CERT_EXTENSION> extensions_;
};

class MemoryStore;

// A CERT_CONTEXT as handed out. The public structure comes first, so that
// the PCCERT_CONTEXT a caller holds converts back to this object.
struct CertificateContext {
    CERT_CONTEXT context;
    std::atomic<uint32_t> references;
    std::shared_ptr<const ParsedCertificate> parsed;
    // Where the store keeps it: enumeration resumes after this position even
    // when the context has left the store meanwhile.
    uint64_t position;
};
static_assert(std::is_standard_layout_v<CertificateContext>,
              "CERT_CONTEXT must be convertible back to its object");

inline CertificateContext* FromHandle(PCCERT_CONTEXT handle) {
    return reinterpret_cast<CertificateContext*>(const_cast<CERT_CONTEXT*>(handle));
}

// A new context with one reference; a store context also holds a reference
// on its store.
CertificateContext* NewContext(std::shared_ptr<const ParsedCertificate> parsed, DWORD encoding,
                               MemoryStore* store, uint64_t position);
void AddReference(CertificateContext* context);
void Release(CertificateContext* context);

void ReleaseStore(MemoryStore* store);
void AddStoreReference(MemoryStore* store);

}  // namespace quelmcert
