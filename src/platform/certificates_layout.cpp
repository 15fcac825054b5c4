// Built for both targets: the same checks hold against Windows' wincrypt.h
// and against libquelmcert's header, so the two agree on every layout and
// value the provider relies on.
#include <cstddef>
#include <cstdint>

#include "platform/certificates.h"

namespace {

static_assert(sizeof(DWORD) == 4 && sizeof(BOOL) == 4 && sizeof(BYTE) == 1 && sizeof(WCHAR) == 2);

static_assert(sizeof(CRYPT_INTEGER_BLOB) == 16 && offsetof(CRYPT_INTEGER_BLOB, pbData) == 8);
static_assert(sizeof(CRYPT_BIT_BLOB) == 24 && offsetof(CRYPT_BIT_BLOB, cUnusedBits) == 16);
static_assert(sizeof(CRYPT_ALGORITHM_IDENTIFIER) == 24);
static_assert(sizeof(CERT_PUBLIC_KEY_INFO) == 48);
static_assert(sizeof(FILETIME) == 8);
static_assert(sizeof(CERT_EXTENSION) == 32 && offsetof(CERT_EXTENSION, Value) == 16);

static_assert(offsetof(CERT_INFO, SerialNumber) == 8);
static_assert(offsetof(CERT_INFO, SignatureAlgorithm) == 24);
static_assert(offsetof(CERT_INFO, Issuer) == 48);
static_assert(offsetof(CERT_INFO, NotBefore) == 64);
static_assert(offsetof(CERT_INFO, NotAfter) == 72);
static_assert(offsetof(CERT_INFO, Subject) == 80);
static_assert(offsetof(CERT_INFO, SubjectPublicKeyInfo) == 96);
static_assert(offsetof(CERT_INFO, IssuerUniqueId) == 144);
static_assert(offsetof(CERT_INFO, SubjectUniqueId) == 168);
static_assert(offsetof(CERT_INFO, cExtension) == 192);
static_assert(offsetof(CERT_INFO, rgExtension) == 200 && sizeof(CERT_INFO) == 208);

static_assert(offsetof(CERT_CONTEXT, pbCertEncoded) == 8);
static_assert(offsetof(CERT_CONTEXT, cbCertEncoded) == 16);
static_assert(offsetof(CERT_CONTEXT, pCertInfo) == 24);
static_assert(offsetof(CERT_CONTEXT, hCertStore) == 32 && sizeof(CERT_CONTEXT) == 40);

static_assert(X509_ASN_ENCODING == 1 && PKCS_7_ASN_ENCODING == 0x10000);
static_assert(CERT_V1 == 0 && CERT_V3 == 2);
static_assert(CERT_NAME_SIMPLE_DISPLAY_TYPE == 4 && CERT_NAME_ISSUER_FLAG == 1);
static_assert(CERT_STORE_ADD_NEW == 1 && CERT_STORE_ADD_USE_EXISTING == 2 &&
              CERT_STORE_ADD_REPLACE_EXISTING == 3 && CERT_STORE_ADD_ALWAYS == 4 &&
              CERT_STORE_ADD_REPLACE_EXISTING_INHERIT_PROPERTIES == 5 &&
              CERT_STORE_ADD_NEWER == 6 && CERT_STORE_ADD_NEWER_INHERIT_PROPERTIES == 7);
static_assert(CERT_CLOSE_STORE_FORCE_FLAG == 1 && CERT_CLOSE_STORE_CHECK_FLAG == 2);

constexpr uint32_t Value(long long value) {
    return static_cast<uint32_t>(value);
}
static_assert(Value(ERROR_INVALID_PARAMETER) == 87 && Value(ERROR_CALL_NOT_IMPLEMENTED) == 120);
static_assert(Value(E_OUTOFMEMORY) == 0x8007000E && Value(E_INVALIDARG) == 0x80070057);
static_assert(Value(CRYPT_E_NOT_FOUND) == 0x80092004 && Value(CRYPT_E_EXISTS) == 0x80092005 &&
              Value(CRYPT_E_PENDING_CLOSE) == 0x8009200F);
static_assert(Value(CRYPT_E_ASN1_EOD) == 0x80093102 && Value(CRYPT_E_ASN1_CORRUPT) == 0x80093103 &&
              Value(CRYPT_E_ASN1_BADTAG) == 0x8009310B);

}  // namespace
