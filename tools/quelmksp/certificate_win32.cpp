// windows.h first: wincrypt.h and bcrypt.h need its types.
#include <windows.h>

#include <bcrypt.h>
#include <wincrypt.h>

#include <cstdio>
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

namespace {

std::optional<std::string> NameText(CERT_NAME_BLOB* name) {
    const DWORD type = CERT_X500_NAME_STR;
    DWORD length = CertNameToStrW(X509_ASN_ENCODING, name, type, nullptr, 0);
    if (length == 0) return std::nullopt;
    std::wstring text(length, L'\0');
    length = CertNameToStrW(X509_ASN_ENCODING, name, type, text.data(), length);
    // The length counts the terminating null.
    text.resize(length > 0 ? length - 1 : 0);
    return platform::ToUtf8(text);
}

std::optional<std::string> TimeText(const FILETIME& time) {
    SYSTEMTIME parts{};
    if (!FileTimeToSystemTime(&time, &parts)) return std::nullopt;
    char text[32];
    std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02uZ", parts.wYear, parts.wMonth,
                  parts.wDay, parts.wHour, parts.wMinute, parts.wSecond);
    return std::string(text);
}

// crypt32 keeps the serial's bytes least significant first.
std::string SerialText(const CRYPT_INTEGER_BLOB& serial) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (DWORD i = serial.cbData; i > 0; --i) {
        const BYTE byte = serial.pbData[i - 1];
        if (text.empty() && byte == 0 && i > 1) continue;
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text.empty() ? "00" : text;
}

}  // namespace

std::optional<std::string> CertificateSubject(const SecretBytes& der) {
    Context certificate = Parse(der);
    if (!certificate) return std::nullopt;
    return NameText(&certificate->pCertInfo->Subject);
}

std::optional<CertificateFacts> DescribeCertificate(const SecretBytes& der) {
    Context certificate = Parse(der);
    if (!certificate) return std::nullopt;
    CERT_INFO* info = certificate->pCertInfo;
    std::optional<std::string> subject = NameText(&info->Subject);
    std::optional<std::string> issuer = NameText(&info->Issuer);
    std::optional<std::string> notBefore = TimeText(info->NotBefore);
    std::optional<std::string> notAfter = TimeText(info->NotAfter);
    if (!subject || !issuer || !notBefore || !notAfter) return std::nullopt;
    return CertificateFacts{*subject, *issuer, SerialText(info->SerialNumber), *notBefore,
                            *notAfter};
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
