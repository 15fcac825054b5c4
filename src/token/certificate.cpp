#include "token/certificate.h"

#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "platform/certificates.h"
#include "platform/secure_zero.h"
#include "platform/text.h"
#include "provider/ncrypt_provider.h"
#include "token/object_search.h"

namespace {

struct ContextRelease {
    void operator()(PCCERT_CONTEXT context) const { CertFreeCertificateContext(context); }
};
using CertificateContext = std::unique_ptr<const CERT_CONTEXT, ContextRelease>;

// A DER name from the parsed certificate, followed by one zero byte.
KeyBytes NameWithTerminator(const CERT_NAME_BLOB& name, uint32_t* length) {
    KeyBytes copy(name.cbData + 1);
    if (name.cbData) std::memcpy(copy.get(), name.pbData, name.cbData);
    *length = name.cbData + 1;
    return copy;
}

// The subject's simple display name in the ANSI code page, terminator
// included, as long as the platform counts it in characters.
KeyBytes DisplayName(PCCERT_CONTEXT context, uint32_t* length) {
    DWORD chars =
        CertGetNameStringW(context, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, nullptr, 0);
    if (chars == 0) chars = 1;
    std::vector<platform::WideChar> wide(chars, 0);
    CertGetNameStringW(context, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, wide.data(), chars);
    std::string ansi = platform::ToAnsi(platform::WideView(wide.data()), chars - 1);
    KeyBytes label(chars);
    std::memcpy(label.get(), ansi.data(), ansi.size());
    platform::SecureZero(ansi.data(), ansi.size());
    *length = chars;
    return label;
}

}  // namespace

CK_RV Certificate::ReadPairId() {
    CK_OBJECT_HANDLE pairObject = fHasPrivateKey ? hPrivateKey : hPublicKey;
    CK_RV rv = ReadAttributeBytes(Token(), hSession, pairObject, CKA_ID, &pbId);
    cbId = rv == CKR_OK ? static_cast<uint32_t>(pbId.size()) : 0;
    return rv;
}

int32_t Certificate::FindExistingCertificate() {
    if (!Bound() || hPublicKey == 0 || hPrivateKey == 0) return NTE_INVALID_PARAMETER;
    if (ReadPairId() != CKR_OK) return NTE_INTERNAL_ERROR;
    CK_BBOOL onToken = CK_TRUE;
    CK_OBJECT_CLASS certificateClass = CKO_CERTIFICATE;
    CK_ATTRIBUTE search[] = {{CKA_TOKEN, &onToken, 1},
                             {CKA_CLASS, &certificateClass, sizeof certificateClass},
                             {CKA_ID, pbId.get(), cbId}};
    CK_OBJECT_HANDLE found = 0;
    ObjectSearch result = FindObjects(Token(), hSession, search, 3, &found, 1);
    if (result.rv != CKR_OK) return NTE_INTERNAL_ERROR;
    return result.found > 0 ? NTE_EXISTS : NTE_NOT_FOUND;
}

int32_t Certificate::WriteCertificate(const uint8_t* der, uint32_t length) {
    if (!Bound()) return NTE_INVALID_PARAMETER;
    CertificateContext context(
        CertCreateCertificateContext(X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, der, length));
    if (!context) return NTE_FAIL;
    try {
        pbLabel = DisplayName(context.get(), &cbLabel);
        pbValue = KeyBytes(der, length);
        cbValue = length;
        if (ReadPairId() != CKR_OK) return NTE_INTERNAL_ERROR;
        const CERT_INFO& info = *context->pCertInfo;
        pbIssuer = NameWithTerminator(info.Issuer, &cbIssuer);
        pbSerialNumber = KeyBytes(info.SerialNumber.pbData, info.SerialNumber.cbData);
        cbSerialNumber = info.SerialNumber.cbData;
        pbSubject = NameWithTerminator(info.Subject, &cbSubject);
    } catch (const std::bad_alloc&) {
        return NTE_NO_MEMORY;
    }

    objectClass = CKO_CERTIFICATE;
    bToken = CK_TRUE;
    bPrivate = CK_FALSE;
    bModifiable = CK_TRUE;
    bExtractable = CK_TRUE;
    CK_ATTRIBUTE object[] = {
        {CKA_CLASS, &objectClass, sizeof objectClass},
        {CKA_TOKEN, &bToken, 1},
        {CKA_LABEL, pbLabel.get(), cbLabel},
        {CKA_VALUE, pbValue.get(), cbValue},
        {CKA_PRIVATE, &bPrivate, 1},
        {CKA_MODIFIABLE, &bModifiable, 1},
        {CKA_EXTRACTABLE, &bExtractable, 1},
        {CKA_ID, pbId.get(), cbId},
        {CKA_OBJECT_ID, pbId.get(), cbId},
        {CKA_ISSUER, pbIssuer.get(), cbIssuer},
        {CKA_SERIAL_NUMBER, pbSerialNumber.get(), cbSerialNumber},
        {CKA_SUBJECT, pbSubject.get(), cbSubject},
    };
    CK_RV rv = Token().C_CreateObject(hSession, object, 12, &hObject);
    return rv == CKR_OK ? ERROR_SUCCESS : NTE_FAIL;
}
