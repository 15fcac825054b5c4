#include <new>
#include <utility>

#include "certificate_internals.h"

namespace quelmcert {

CertificateContext* NewContext(std::shared_ptr<const ParsedCertificate> parsed, DWORD encoding,
                               MemoryStore* store, uint64_t position) {
    auto* context = new CertificateContext{};
    context->context.dwCertEncodingType = encoding;
    // crypt32 declares the bytes writable; nobody is meant to write them.
    context->context.pbCertEncoded = const_cast<BYTE*>(parsed->Der().data());
    context->context.cbCertEncoded = static_cast<DWORD>(parsed->Der().size());
    context->context.pCertInfo = const_cast<CERT_INFO*>(&parsed->Info());
    context->context.hCertStore = store;
    context->references.store(1, std::memory_order_relaxed);
    context->parsed = std::move(parsed);
    context->position = position;
    if (store) AddStoreReference(store);
    return context;
}

void AddReference(CertificateContext* context) {
    context->references.fetch_add(1, std::memory_order_relaxed);
}

void Release(CertificateContext* context) {
    if (context->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    auto* store = static_cast<MemoryStore*>(context->context.hCertStore);
    delete context;
    if (store) ReleaseStore(store);
}

}  // namespace quelmcert

using quelmcert::FromHandle;

extern "C" PCCERT_CONTEXT CertCreateCertificateContext(DWORD dwCertEncodingType,
                                                       const BYTE* pbCertEncoded,
                                                       DWORD cbCertEncoded) {
    if (!(dwCertEncodingType & X509_ASN_ENCODING) || !pbCertEncoded || cbCertEncoded == 0) {
        SetLastError(E_INVALIDARG);
        return nullptr;
    }
    try {
        DWORD error = 0;
        auto parsed = quelmcert::ParsedCertificate::Parse(pbCertEncoded, cbCertEncoded, &error);
        if (!parsed) {
            SetLastError(error);
            return nullptr;
        }
        return &quelmcert::NewContext(std::move(parsed), dwCertEncodingType, nullptr, 0)->context;
    } catch (const std::bad_alloc&) {
        SetLastError(E_OUTOFMEMORY);
        return nullptr;
    }
}

extern "C" PCCERT_CONTEXT CertDuplicateCertificateContext(PCCERT_CONTEXT pCertContext) {
    if (pCertContext) quelmcert::AddReference(FromHandle(pCertContext));
    return pCertContext;
}

extern "C" BOOL CertFreeCertificateContext(PCCERT_CONTEXT pCertContext) {
    if (pCertContext) quelmcert::Release(FromHandle(pCertContext));
    return TRUE;
}
