#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstdint>

#include "certificate_internals.h"

namespace quelmcert {
namespace {

// The difference between 1601-01-01 and a certificate time, in the units of
// FILETIME. OpenSSL does the calendar arithmetic.
FILETIME ToFileTime(const ASN1_TIME* time) {
    FILETIME out{0, 0};
    ASN1_TIME* epoch = ASN1_TIME_new();
    int days = 0;
    int seconds = 0;
    if (epoch && ASN1_TIME_set_string(epoch, "16010101000000Z") &&
        ASN1_TIME_diff(&days, &seconds, epoch, time)) {
        int64_t total = static_cast<int64_t>(days) * 86400 + seconds;
        if (total > 0) {
            uint64_t ticks = static_cast<uint64_t>(total) * 10000000u;
            out.dwLowDateTime = static_cast<DWORD>(ticks);
            out.dwHighDateTime = static_cast<DWORD>(ticks >> 32);
        }
    }
    ASN1_TIME_free(epoch);
    return out;
}

// The content octets of the serial's DER INTEGER, sign octet included, in
// the reverse order that crypt32 keeps.
bool ReversedSerial(const ASN1_INTEGER* serial, Bytes& out) {
    unsigned char* encoded = nullptr;
    int encodedLength = i2d_ASN1_INTEGER(serial, &encoded);
    if (encodedLength <= 0) return false;
    const unsigned char* content = encoded;
    long contentLength = 0;
    int tag = 0;
    int tagClass = 0;
    int flags = ASN1_get_object(&content, &contentLength, &tag, &tagClass, encodedLength);
    bool ok = !(flags & 0x80) && tag == V_ASN1_INTEGER;
    if (ok)
        out.assign(std::reverse_iterator(content + contentLength), std::reverse_iterator(content));
    OPENSSL_clear_free(encoded, encodedLength);
    return ok;
}

Bytes CopyOf(const unsigned char* data, size_t length) {
    return data ? Bytes(data, data + length) : Bytes();
}

}  // namespace

std::shared_ptr<const ParsedCertificate> ParsedCertificate::Parse(const BYTE* der, DWORD length,
                                                                  DWORD* error) {
    std::shared_ptr<ParsedCertificate> parsed(new ParsedCertificate());
    parsed->der_.assign(der, der + length);
    // The thread's OpenSSL error queue belongs to the caller: it is left as
    // it was. The first error OpenSSL reports is the cause (the others only
    // say where it was nested); it can be read only when the queue held
    // nothing of the caller's, else the failure counts as a bad tag.
    bool queueWasEmpty = ERR_peek_error() == 0;
    ERR_set_mark();
    const unsigned char* cursor = parsed->der_.data();
    const unsigned char* end = cursor + parsed->der_.size();
    parsed->certificate_.reset(d2i_X509(nullptr, &cursor, static_cast<long>(length)));
    int reason = queueWasEmpty ? ERR_GET_REASON(ERR_peek_error()) : 0;
    bool decoded = false;
    try {
        decoded = parsed->certificate_ && cursor == end && parsed->Decode();
    } catch (...) {
        ERR_pop_to_mark();
        throw;
    }
    ERR_pop_to_mark();
    if (!parsed->certificate_) {
        bool shortInput = reason == ASN1_R_TOO_LONG || reason == ASN1_R_HEADER_TOO_LONG;
        *error = shortInput ? CRYPT_E_ASN1_EOD : CRYPT_E_ASN1_BADTAG;
        return nullptr;
    }
    if (!decoded) {
        *error = cursor != end ? CRYPT_E_ASN1_CORRUPT : CRYPT_E_ASN1_BADTAG;
        return nullptr;
    }
    return parsed;
}

BYTE* ParsedCertificate::Keep(Bytes bytes) {
    if (bytes.empty()) return nullptr;
    return kept_.emplace_back(std::move(bytes)).data();
}

BYTE* ParsedCertificate::KeepObjectId(const ASN1_OBJECT* object) {
    int length = OBJ_obj2txt(nullptr, 0, object, 1);
    if (length <= 0) return nullptr;
    Bytes text(static_cast<size_t>(length) + 1);
    OBJ_obj2txt(reinterpret_cast<char*>(text.data()), length + 1, object, 1);
    return Keep(std::move(text));
}

void ParsedCertificate::FillAlgorithm(const X509_ALGOR* algorithm,
                                      CRYPT_ALGORITHM_IDENTIFIER& out) {
    out.pszObjId = reinterpret_cast<LPSTR>(KeepObjectId(algorithm->algorithm));
    if (!algorithm->parameter) return;
    unsigned char* encoded = nullptr;
    int length = i2d_ASN1_TYPE(algorithm->parameter, &encoded);
    if (length > 0) {
        out.Parameters.cbData = static_cast<DWORD>(length);
        out.Parameters.pbData = Keep(CopyOf(encoded, static_cast<size_t>(length)));
        OPENSSL_clear_free(encoded, length);
    }
}

void ParsedCertificate::FillBits(const ASN1_BIT_STRING* bits, CRYPT_BIT_BLOB& out) {
    if (!bits) return;
    size_t length = static_cast<size_t>(ASN1_STRING_length(bits));
    out.cbData = static_cast<DWORD>(length);
    out.pbData = Keep(CopyOf(ASN1_STRING_get0_data(bits), length));
    out.cUnusedBits = (bits->flags & ASN1_STRING_FLAG_BITS_LEFT) ? (bits->flags & 0x07) : 0;
}

bool ParsedCertificate::Decode() {
    const X509* x = certificate_.get();
    info_.dwVersion = static_cast<DWORD>(X509_get_version(x));

    Bytes serial;
    if (!ReversedSerial(X509_get0_serialNumber(x), serial)) return false;
    info_.SerialNumber.cbData = static_cast<DWORD>(serial.size());
    info_.SerialNumber.pbData = Keep(std::move(serial));

    FillAlgorithm(X509_get0_tbs_sigalg(x), info_.SignatureAlgorithm);

    const unsigned char* name = nullptr;
    size_t nameLength = 0;
    if (!X509_NAME_get0_der(X509_get_issuer_name(x), &name, &nameLength)) return false;
    info_.Issuer.cbData = static_cast<DWORD>(nameLength);
    info_.Issuer.pbData = Keep(CopyOf(name, nameLength));
    if (!X509_NAME_get0_der(X509_get_subject_name(x), &name, &nameLength)) return false;
    info_.Subject.cbData = static_cast<DWORD>(nameLength);
    info_.Subject.pbData = Keep(CopyOf(name, nameLength));

    info_.NotBefore = ToFileTime(X509_get0_notBefore(x));
    info_.NotAfter = ToFileTime(X509_get0_notAfter(x));

    X509_ALGOR* keyAlgorithm = nullptr;
    if (!X509_PUBKEY_get0_param(nullptr, nullptr, nullptr, &keyAlgorithm,
                                X509_get_X509_PUBKEY(x)) ||
        !keyAlgorithm) {
        return false;
    }
    FillAlgorithm(keyAlgorithm, info_.SubjectPublicKeyInfo.Algorithm);
    FillBits(X509_get0_pubkey_bitstr(x), info_.SubjectPublicKeyInfo.PublicKey);

    const ASN1_BIT_STRING* issuerUid = nullptr;
    const ASN1_BIT_STRING* subjectUid = nullptr;
    X509_get0_uids(x, &issuerUid, &subjectUid);
    FillBits(issuerUid, info_.IssuerUniqueId);
    FillBits(subjectUid, info_.SubjectUniqueId);

    int count = X509_get_ext_count(x);
    extensions_.resize(count > 0 ? static_cast<size_t>(count) : 0);
    for (int i = 0; i < count; ++i) {
        X509_EXTENSION* extension = X509_get_ext(x, i);
        CERT_EXTENSION& out = extensions_[static_cast<size_t>(i)];
        out.pszObjId = reinterpret_cast<LPSTR>(KeepObjectId(X509_EXTENSION_get_object(extension)));
        out.fCritical = X509_EXTENSION_get_critical(extension) ? TRUE : FALSE;
        const ASN1_OCTET_STRING* value = X509_EXTENSION_get_data(extension);
        size_t length = static_cast<size_t>(ASN1_STRING_length(value));
        out.Value.cbData = static_cast<DWORD>(length);
        out.Value.pbData = Keep(CopyOf(ASN1_STRING_get0_data(value), length));
    }
    info_.cExtension = static_cast<DWORD>(extensions_.size());
    info_.rgExtension = extensions_.empty() ? nullptr : extensions_.data();
    return true;
}

}  // namespace quelmcert
