#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/obj_mac.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "certificate_internals.h"

namespace quelmcert {
namespace {

struct Utf8Text {
    unsigned char* text = nullptr;
    int length = -1;
    ~Utf8Text() {
        if (text) OPENSSL_clear_free(text, static_cast<size_t>(length));
    }
};

struct GeneralNamesFree {
    void operator()(GENERAL_NAMES* names) const { GENERAL_NAMES_free(names); }
};

// An attribute's text, whatever string type it was encoded in.
Utf16 ToUtf16(const ASN1_STRING* value) {
    Utf16 out;
    Utf8Text utf8;
    if (value) utf8.length = ASN1_STRING_to_UTF8(&utf8.text, value);
    if (utf8.length < 0) return out;
    out.reserve(static_cast<size_t>(utf8.length));
    for (int offset = 0; offset < utf8.length;) {
        unsigned long codePoint = 0;
        int used = UTF8_getc(utf8.text + offset, utf8.length - offset, &codePoint);
        if (used <= 0 || codePoint > 0x10FFFF) {
            out.clear();
            break;
        }
        offset += used;
        if (codePoint < 0x10000) {
            out.push_back(static_cast<char16_t>(codePoint));
        } else {
            codePoint -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 | (codePoint >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 | (codePoint & 0x3FF)));
        }
    }
    return out;
}

bool FirstAlternativeEmail(const X509* certificate, int extensionNid, Utf16& out) {
    std::unique_ptr<GENERAL_NAMES, GeneralNamesFree> names(
        static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, extensionNid, nullptr, nullptr)));
    if (!names) return false;
    for (int i = 0; i < sk_GENERAL_NAME_num(names.get()); ++i) {
        const GENERAL_NAME* name = sk_GENERAL_NAME_value(names.get(), i);
        if (name->type == GEN_EMAIL) {
            out = ToUtf16(name->d.rfc822Name);
            return true;
        }
    }
    return false;
}

// crypt32's simple display name: the first of these attributes that the
// name has, in this order of preference; else the first e-mail address of
// the matching alternative name extension; else the name's first attribute.
Utf16 SimpleDisplayName(const X509* certificate, bool issuer) {
    const X509_NAME* name =
        issuer ? X509_get_issuer_name(certificate) : X509_get_subject_name(certificate);
    static const int kPreferred[] = {NID_commonName, NID_organizationalUnitName,
                                     NID_organizationName, NID_pkcs9_emailAddress};
    for (int nid : kPreferred) {
        int index = X509_NAME_get_index_by_NID(name, nid, -1);
        if (index >= 0) return ToUtf16(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, index)));
    }
    Utf16 email;
    if (FirstAlternativeEmail(certificate, issuer ? NID_issuer_alt_name : NID_subject_alt_name,
                              email)) {
        return email;
    }
    if (X509_NAME_entry_count(name) > 0) {
        return ToUtf16(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, 0)));
    }
    return Utf16();
}

}  // namespace
}  // namespace quelmcert

extern "C" DWORD CertGetNameStringW(PCCERT_CONTEXT pCertContext, DWORD dwType, DWORD dwFlags, void*,
                                    LPWSTR pszNameString, DWORD cchNameString) {
    quelmcert::Utf16 name;
    if (pCertContext && dwType == CERT_NAME_SIMPLE_DISPLAY_TYPE) {
        // The thread's OpenSSL error queue belongs to the caller.
        ERR_set_mark();
        try {
            name = quelmcert::SimpleDisplayName(
                quelmcert::FromHandle(pCertContext)->parsed->Certificate(),
                (dwFlags & CERT_NAME_ISSUER_FLAG) != 0);
        } catch (const std::bad_alloc&) {
            name.clear();
        }
        ERR_pop_to_mark();
    }
    DWORD needed = static_cast<DWORD>(name.size()) + 1;
    if (!pszNameString || cchNameString == 0) return needed;
    // Too small a buffer gets as much as fits and the terminator.
    DWORD copied = std::min<DWORD>(needed, cchNameString) - 1;
    std::copy_n(name.begin(), copied, pszNameString);
    pszNameString[copied] = u'\0';
    return copied + 1;
}

extern "C" BOOL CertCompareCertificateName(DWORD, PCERT_NAME_BLOB pCertName1,
                                           PCERT_NAME_BLOB pCertName2) {
    if (!pCertName1 || !pCertName2) {
        SetLastError(E_INVALIDARG);
        return FALSE;
    }
    if (pCertName1->cbData != pCertName2->cbData) return FALSE;
    if (pCertName1->cbData == 0) return TRUE;
    return std::memcmp(pCertName1->pbData, pCertName2->pbData, pCertName1->cbData) == 0 ? TRUE
                                                                                        : FALSE;
}
