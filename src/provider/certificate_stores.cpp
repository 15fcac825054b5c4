#include "provider/certificate_stores.h"

#include <memory>

#include "keys/key_context.h"
#include "token/cryptoki_library.h"
#include "token/key_certificate.h"
#include "token/object_list.h"

namespace {

struct StoreClose {
    void operator()(HCERTSTORE store) const { CertCloseStore(store, 0); }
};
using Store = std::unique_ptr<void, StoreClose>;
struct ContextRelease {
    void operator()(PCCERT_CONTEXT context) const { CertFreeCertificateContext(context); }
};
using CertificateContext = std::unique_ptr<const CERT_CONTEXT, ContextRelease>;

constexpr DWORD kEncoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

}  // namespace

HCERTSTORE BuildCertificateStore(QUELMKSP_PROVIDER& provider, StoreKind kind) {
    if (provider.cObjectList == 0 && InitializeObjectList(provider, *g_pCryptoki) != ERROR_SUCCESS)
        return nullptr;
    Store store(CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr));
    if (!store) return nullptr;

    for (uint32_t i = 0; i < provider.cObjectList; ++i) {
        KeyCertificate certificate;
        certificate.pCryptoki = g_pCryptoki;
        certificate.hSession = provider.hSession;
        if (ReadKeyCertificate(certificate, provider.pObjectList[i].KeyName()) != ERROR_SUCCESS ||
            certificate.cbCertificate == 0)
            continue;
        CertificateContext context(CertCreateCertificateContext(
            X509_ASN_ENCODING, certificate.pbCertificate.get(), certificate.cbCertificate));
        if (!context) return nullptr;
        CERT_INFO& info = *context->pCertInfo;
        bool selfSigned = CertCompareCertificateName(kEncoding, &info.Issuer, &info.Subject);
        if (selfSigned != (kind == StoreKind::kRoot)) continue;
        if (!CertAddCertificateContextToStore(store.get(), context.get(),
                                              CERT_STORE_ADD_REPLACE_EXISTING, nullptr))
            return nullptr;
    }
    return store.release();
}
