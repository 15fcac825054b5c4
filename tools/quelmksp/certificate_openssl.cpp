#include <openssl/err.h>
#include <openssl/pem.h>

#include <ctime>

#include "certificate.h"
#include "client_error.h"
#include "crypto_objects_openssl.h"

namespace {

X509Ptr ParseDer(const SecretBytes& der) {
    const unsigned char* cursor = der.data();
    X509Ptr certificate(d2i_X509(nullptr, &cursor, static_cast<long>(der.size())));
    // Bytes after the certificate would be lost on the token without a word.
    if (certificate && cursor != der.data() + der.size()) certificate.reset();
    ERR_clear_error();
    return certificate;
}

X509Ptr ParsePem(const SecretBytes& text) {
    BioPtr bio = ReadingBio(text);
    X509Ptr certificate(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    ERR_clear_error();
    return certificate;
}

SecretBytes Der(X509* certificate) {
    unsigned char* bytes = nullptr;
    int length = i2d_X509(certificate, &bytes);
    if (length <= 0)
        throw ClientError(exit_code::kData, "OpenSSL could not encode the certificate");
    SecretBytes der(bytes, bytes + length);
    OPENSSL_clear_free(bytes, static_cast<size_t>(length));
    return der;
}

}  // namespace

SecretBytes CertificateDer(const SecretBytes& fileBytes) {
    X509Ptr certificate = ParsePem(fileBytes);
    if (!certificate) certificate = ParseDer(fileBytes);
    if (!certificate)
        throw ClientError(exit_code::kData, "the file holds no X.509 certificate in PEM or DER");
    return Der(certificate.get());
}

std::optional<RsaPublicKey> CertificatePublicKey(const SecretBytes& der) {
    X509Ptr certificate = ParseDer(der);
    if (!certificate) return std::nullopt;
    return RsaPublicKeyOf(X509_get0_pubkey(certificate.get()));
}

namespace {

std::optional<std::string> NameText(const X509_NAME* name) {
    BioPtr bio = NewWipedMemoryBio();
    if (!bio) return std::nullopt;
    // The escapes of RFC 2253 without its reversed order, and UTF-8 left
    // readable.
    const unsigned long flags =
        XN_FLAG_SEP_CPLUS_SPC | XN_FLAG_FN_SN | (ASN1_STRFLGS_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
    if (X509_NAME_print_ex(bio.get(), name, 0, flags) < 0) return std::nullopt;
    SecretBytes text = BioContents(bio.get());
    return std::string(text.begin(), text.end());
}

std::optional<std::string> TimeText(const ASN1_TIME* time) {
    std::tm parts{};
    if (!time || !ASN1_TIME_to_tm(time, &parts)) return std::nullopt;
    char text[32];
    if (std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts) == 0) return std::nullopt;
    return std::string(text);
}

std::optional<std::string> SerialText(const ASN1_INTEGER* serial) {
    BignumPtr number(ASN1_INTEGER_to_BN(serial, nullptr));
    if (!number) return std::nullopt;
    char* hex = BN_bn2hex(number.get());
    if (!hex) return std::nullopt;
    std::string text = hex;
    OPENSSL_free(hex);
    return text;
}

}  // namespace

std::optional<std::string> CertificateSubject(const SecretBytes& der) {
    X509Ptr certificate = ParseDer(der);
    if (!certificate) return std::nullopt;
    return NameText(X509_get_subject_name(certificate.get()));
}

std::optional<CertificateFacts> DescribeCertificate(const SecretBytes& der) {
    X509Ptr certificate = ParseDer(der);
    if (!certificate) return std::nullopt;
    std::optional<std::string> subject = NameText(X509_get_subject_name(certificate.get()));
    std::optional<std::string> issuer = NameText(X509_get_issuer_name(certificate.get()));
    std::optional<std::string> serial = SerialText(X509_get0_serialNumber(certificate.get()));
    std::optional<std::string> notBefore = TimeText(X509_get0_notBefore(certificate.get()));
    std::optional<std::string> notAfter = TimeText(X509_get0_notAfter(certificate.get()));
    if (!subject || !issuer || !serial || !notBefore || !notAfter) return std::nullopt;
    return CertificateFacts{*subject, *issuer, *serial, *notBefore, *notAfter};
}

SecretBytes CertificatePem(const SecretBytes& der) {
    X509Ptr certificate = ParseDer(der);
    if (!certificate)
        throw ClientError(exit_code::kData, "the certificate on the token is not X.509 DER");
    BioPtr bio = NewWipedMemoryBio();
    if (!bio || !PEM_write_bio_X509(bio.get(), certificate.get()))
        throw ClientError(exit_code::kData, "OpenSSL could not write the certificate as PEM");
    return BioContents(bio.get());
}
