/* Built as C: the public header of libquelmcert must serve C callers. */
#include <stddef.h>

#include "quelmcert.h"

/* The simple display name of a certificate after a trip through a memory
 * store, or -1 when the certificate is refused. */
int QuelmcertNameFromC(const unsigned char* der, DWORD length, WCHAR* name, DWORD capacity) {
    PCCERT_CONTEXT context = CertCreateCertificateContext(X509_ASN_ENCODING, der, length);
    PCCERT_CONTEXT stored = NULL;
    HCERTSTORE store;
    DWORD written = 0;
    if (!context) return -1;
    store = CertOpenStore(CERT_STORE_PROV_MEMORY, 0, NULL, 0, NULL);
    if (store && CertAddCertificateContextToStore(store, context, CERT_STORE_ADD_NEW, &stored)) {
        written =
            CertGetNameStringW(stored, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, NULL, name, capacity);
        CertFreeCertificateContext(stored);
    }
    CertFreeCertificateContext(context);
    if (!CertCloseStore(store, CERT_CLOSE_STORE_CHECK_FLAG)) return -2;
    return (int)written;
}
