/* The crypt32 certificate functions the provider uses, for Linux, with the
 * Windows names, structure layouts and semantics. libquelmcert.so also holds
 * the thread's last-error value (GetLastError/SetLastError), so that every
 * module of a process shares one per thread, as on Windows.
 *
 * Windows types are given fixed widths: DWORD is 32 bits, BOOL an int and
 * WCHAR a char16_t (UTF-16). Callers free what they are given as on Windows:
 * every context returned here needs one CertFreeCertificateContext, every
 * store one CertCloseStore. */
#ifndef QUELMCERT_H
#define QUELMCERT_H

#include <stdint.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#if defined(__GNUC__)
#define QUELMCERT_API __attribute__((visibility("default")))
#else
#define QUELMCERT_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The same typedefs as the provider's interface header; repeating a typedef
 * of the same type is allowed. */
typedef uint32_t DWORD;
typedef int BOOL;
typedef uint8_t BYTE;
typedef char16_t WCHAR;
typedef WCHAR* LPWSTR;
typedef const WCHAR* LPCWSTR;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef void* HCERTSTORE;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

typedef struct _CRYPTOAPI_BLOB {
    DWORD cbData;
    BYTE* pbData;
} CRYPT_INTEGER_BLOB, *PCRYPT_INTEGER_BLOB, CRYPT_DATA_BLOB, *PCRYPT_DATA_BLOB, CERT_NAME_BLOB,
    *PCERT_NAME_BLOB, CRYPT_OBJID_BLOB, *PCRYPT_OBJID_BLOB;

typedef struct _CRYPT_ALGORITHM_IDENTIFIER {
    LPSTR pszObjId;
    CRYPT_OBJID_BLOB Parameters;
} CRYPT_ALGORITHM_IDENTIFIER, *PCRYPT_ALGORITHM_IDENTIFIER;

typedef struct _CRYPT_BIT_BLOB {
    DWORD cbData;
    BYTE* pbData;
    DWORD cUnusedBits;
} CRYPT_BIT_BLOB, *PCRYPT_BIT_BLOB;

typedef struct _CERT_PUBLIC_KEY_INFO {
    CRYPT_ALGORITHM_IDENTIFIER Algorithm;
    CRYPT_BIT_BLOB PublicKey;
} CERT_PUBLIC_KEY_INFO, *PCERT_PUBLIC_KEY_INFO;

/* 100-nanosecond intervals since 1601-01-01 00:00 UTC. */
typedef struct _FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
} FILETIME, *PFILETIME;

typedef struct _CERT_EXTENSION {
    LPSTR pszObjId;
    BOOL fCritical;
    CRYPT_OBJID_BLOB Value;
} CERT_EXTENSION, *PCERT_EXTENSION;

/* SerialNumber holds the serial's bytes least significant first. Issuer and
 * Subject hold the names' DER encodings. Object identifiers are dotted
 * strings. */
typedef struct _CERT_INFO {
    DWORD dwVersion;
    CRYPT_INTEGER_BLOB SerialNumber;
    CRYPT_ALGORITHM_IDENTIFIER SignatureAlgorithm;
    CERT_NAME_BLOB Issuer;
    FILETIME NotBefore;
    FILETIME NotAfter;
    CERT_NAME_BLOB Subject;
    CERT_PUBLIC_KEY_INFO SubjectPublicKeyInfo;
    CRYPT_BIT_BLOB IssuerUniqueId;
    CRYPT_BIT_BLOB SubjectUniqueId;
    DWORD cExtension;
    PCERT_EXTENSION rgExtension;
} CERT_INFO, *PCERT_INFO;

typedef struct _CERT_CONTEXT {
    DWORD dwCertEncodingType;
    BYTE* pbCertEncoded;
    DWORD cbCertEncoded;
    PCERT_INFO pCertInfo;
    HCERTSTORE hCertStore;
} CERT_CONTEXT, *PCERT_CONTEXT;
typedef const CERT_CONTEXT* PCCERT_CONTEXT;

#define X509_ASN_ENCODING 0x00000001
#define PKCS_7_ASN_ENCODING 0x00010000

#define CERT_V1 0
#define CERT_V2 1
#define CERT_V3 2

#define CERT_NAME_SIMPLE_DISPLAY_TYPE 4
#define CERT_NAME_ISSUER_FLAG 0x1

#define CERT_STORE_PROV_MEMORY ((LPCSTR)2)

#define CERT_STORE_ADD_NEW 1
#define CERT_STORE_ADD_USE_EXISTING 2
#define CERT_STORE_ADD_REPLACE_EXISTING 3
#define CERT_STORE_ADD_ALWAYS 4
#define CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES 5
#define CERT_STORE_ADD_NEWER 6
#define CERT_STORE_ADD_NEWER_INHERIT_PROPERTIES 7

#define CERT_CLOSE_STORE_FORCE_FLAG 0x1
#define CERT_CLOSE_STORE_CHECK_FLAG 0x2

/* Last-error values. They are HRESULTs on Windows; here they are unsigned so
 * that they compare with GetLastError() without a cast. */
#ifndef ERROR_INVALID_PARAMETER
#define ERROR_INVALID_PARAMETER 87u
#endif
#ifndef ERROR_CALL_NOT_IMPLEMENTED
#define ERROR_CALL_NOT_IMPLEMENTED 120u
#endif
#ifndef E_OUTOFMEMORY
#define E_OUTOFMEMORY 0x8007000Eu
#endif
#ifndef E_INVALIDARG
#define E_INVALIDARG 0x80070057u
#endif
#ifndef CRYPT_E_NOT_FOUND
#define CRYPT_E_NOT_FOUND 0x80092004u
#endif
#ifndef CRYPT_E_EXISTS
#define CRYPT_E_EXISTS 0x80092005u
#endif
#ifndef CRYPT_E_PENDING_CLOSE
#define CRYPT_E_PENDING_CLOSE 0x8009200Fu
#endif
#ifndef CRYPT_E_ASN1_EOD
#define CRYPT_E_ASN1_EOD 0x80093102u
#endif
#ifndef CRYPT_E_ASN1_CORRUPT
#define CRYPT_E_ASN1_CORRUPT 0x80093103u
#endif
#ifndef CRYPT_E_ASN1_BADTAG
#define CRYPT_E_ASN1_BADTAG 0x8009310Bu
#endif

/* The calling thread's last error. */
QUELMCERT_API DWORD GetLastError(void);
QUELMCERT_API void SetLastError(DWORD dwErrCode);

/* Certificate contexts, reference counted. */
QUELMCERT_API PCCERT_CONTEXT CertCreateCertificateContext(DWORD dwCertEncodingType,
                                                          const BYTE* pbCertEncoded,
                                                          DWORD cbCertEncoded);
QUELMCERT_API PCCERT_CONTEXT CertDuplicateCertificateContext(PCCERT_CONTEXT pCertContext);
QUELMCERT_API BOOL CertFreeCertificateContext(PCCERT_CONTEXT pCertContext);

/* Only CERT_NAME_SIMPLE_DISPLAY_TYPE is implemented; other types give the
 * empty string (a count of 1). */
QUELMCERT_API DWORD CertGetNameStringW(PCCERT_CONTEXT pCertContext, DWORD dwType, DWORD dwFlags,
                                       void* pvTypePara, LPWSTR pszNameString, DWORD cchNameString);
QUELMCERT_API BOOL CertCompareCertificateName(DWORD dwCertEncodingType, PCERT_NAME_BLOB pCertName1,
                                              PCERT_NAME_BLOB pCertName2);

/* Stores. Only the memory provider exists. hCryptProv is not used. */
QUELMCERT_API HCERTSTORE CertOpenStore(LPCSTR lpszStoreProvider, DWORD dwEncodingType,
                                       void* hCryptProv, DWORD dwFlags, const void* pvPara);
QUELMCERT_API BOOL CertCloseStore(HCERTSTORE hCertStore, DWORD dwFlags);
QUELMCERT_API BOOL CertAddCertificateContextToStore(HCERTSTORE hCertStore,
                                                    PCCERT_CONTEXT pCertContext,
                                                    DWORD dwAddDisposition,
                                                    PCCERT_CONTEXT* ppStoreContext);
QUELMCERT_API PCCERT_CONTEXT CertEnumCertificatesInStore(HCERTSTORE hCertStore,
                                                         PCCERT_CONTEXT pPrevCertContext);
QUELMCERT_API BOOL CertDeleteCertificateFromStore(PCCERT_CONTEXT pCertContext);

#ifdef __cplusplus
}
#endif

#endif
