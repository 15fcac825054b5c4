// windows.h first: wincrypt.h and bcrypt.h need its types.
#include <windows.h>

#include <bcrypt.h>
#include <wincrypt.h>

#include <memory>

#include "certificate.h"
#include "client_error.h"
#include "platform/text.h"

namespace {

struct ContextFree {
    void operator()(PCCERT_CONTEXT context) const { CertFreeCertificateContext(context); }
};
using Context = std::unique_ptr<const CERT_CONTEXT, ContextFree>;

Context Parse(const SecretBytes& der) {
    return Context(CertCreateCertificateContext(X509_ASN_ENCODING, der.data(),
                                                static_cast<DWORD>(der.size())));
}

std::optional<SecretBytes> FromPem(const SecretBytes& text) {
    const auto* chars = reinterpret_cast<const char*>(text.data());
    const auto size = static_cast<DWORD>(text.size());
    DWORD length = 0;
    if (!CryptStringToBinaryA(chars, size, CRYPT_STRING_BASE64HEADER, nullptr, &length, nullptr,
                              nullptr))
        return std::nullopt;
    SecretBytes der(length);
    if (!CryptStringToBinaryA(chars, size, CRYPT_STRING_BASE64HEADER, der.data(), &length, nullptr,
                              nullptr))
        return std::nullopt;
    der.resize(length);
    return der;
}

class KeyHandle {
public:
    ~KeyHandle() {
        if (handle) BCryptDestroyKey(handle);
    }
    BCRYPT_KEY_HANDLE handle = nullptr;
};

}  // namespace

SecretBytes CertificateDer(const SecretBytes& fileBytes) {
    std::optional<SecretBytes> der = FromPem(fileBytes);
    if (!der) der = fileBytes;
    if (!Parse(*der))
        throw ClientError(exit_code::kData, "the file holds no X.509 certificate in PEM or DER");
    return *der;
}

// crypt32 hands the key to BCrypt, whose RSAPUBLICBLOB is the provider's
// export format.
std::optional<RsaPublicKey> CertificatePublicKey(const SecretBytes& der) {
    Context certificate = Parse(der);
    if (!certificate) return std::nullopt;
    KeyHandle key;
    if (!CryptImportPublicKeyInfoEx2(X509_ASN_ENCODING,
                                     &certificate->pCertInfo->SubjectPublicKeyInfo, 0, nullptr,
                                     &key.handle))
        return std::nullopt;
    ULONG length = 0;
    if (!BCRYPT_SUCCESS(
            BCryptExportKey(key.handle, nullptr, BCRYPT_RSAPUBLIC_BLOB, nullptr, 0, &length, 0)))
        return std::nullopt;
    SecretBytes blob(length);
    if (!BCRYPT_SUCCESS(BCryptExportKey(key.handle, nullptr, BCRYPT_RSAPUBLIC_BLOB, blob.data(),
                                        length, &length, 0)))
        return std::nullopt;
    return ParseRsaPublicBlob(blob.data(), length);
}

std::optional<std::string> CertificateSubject(const SecretBytes& der) {
    Context certificate = Parse(der);
    if (!certificate) return std::nullopt;
    CERT_NAME_BLOB* subject = &certificate->pCertInfo->Subject;
    const DWORD type = CERT_X500_NAME_STR;
    DWORD length = CertNameToStrW(X509_ASN_ENCODING, subject, type, nullptr, 0);
    if (length == 0) return std::nullopt;
    std::wstring text(length, L'\0');
    length = CertNameToStrW(X509_ASN_ENCODING, subject, type, text.data(), length);
    // The length counts the terminating null.
    text.resize(length > 0 ? length - 1 : 0);
    return platform::ToUtf8(text);
}

SecretBytes CertificatePem(const SecretBytes& der) {
    if (!Parse(der))
        throw ClientError(exit_code::kData, "the certificate on the token is not X.509 DER");
    const DWORD flags = CRYPT_STRING_BASE64HEADER | CRYPT_STRING_NOCR;
    const auto size = static_cast<DWORD>(der.size());
    DWORD length = 0;
    if (!CryptBinaryToStringA(der.data(), size, flags, nullptr, &length))
        throw ClientError(exit_code::kData, "crypt32 could not write the certificate as PEM");
    SecretBytes pem(length);
    if (!CryptBinaryToStringA(der.data(), size, flags, reinterpret_cast<char*>(pem.data()),
                              &length))
        throw ClientError(exit_code::kData, "crypt32 could not write the certificate as PEM");
    pem.resize(length);
    return pem;
}
