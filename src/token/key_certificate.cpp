#include "token/key_certificate.h"

#include "platform/secure_zero.h"
#include "platform/text.h"
#include "provider/ncrypt_provider.h"
#include "token/object_search.h"

int32_t ReadKeyCertificate(KeyCertificate& record, const platform::WideChar* keyName) {
    if (!record.pCryptoki || record.hSession == 0) return NTE_INVALID_PARAMETER;
    // A key without a name has no CKA_ID to search by, and so no certificate.
    if (!keyName) return NTE_NOT_FOUND;
    record.pbCertificate.reset();
    record.cbCertificate = 0;

    std::string id = platform::ToAnsi(keyName);
    CK_OBJECT_CLASS certificateClass = CKO_CERTIFICATE;
    CK_ATTRIBUTE search[] = {{CKA_ID, id.data(), static_cast<CK_ULONG>(id.size())},
                             {CKA_CLASS, &certificateClass, sizeof certificateClass}};
    CK_FUNCTION_LIST& token = *record.pCryptoki->functions();
    CK_OBJECT_HANDLE certificate = 0;
    ObjectSearch found = FindObjects(token, record.hSession, search, 2, &certificate, 1);
    platform::SecureZero(id.data(), id.size());
    if (found.rv != CKR_OK) return MapFindCkrToStatus(found.rv);
    if (found.found == 0) return NTE_NOT_FOUND;

    CK_RV rv =
        ReadAttributeBytes(token, record.hSession, certificate, CKA_VALUE, &record.pbCertificate);
    if (rv != CKR_OK) return MapFindCkrToStatus(rv);
    record.cbCertificate = static_cast<uint32_t>(record.pbCertificate.size());
    return ERROR_SUCCESS;
}

int32_t MapFindCkrToStatus(CK_RV rv) {
    switch (rv) {
        case CKR_ARGUMENTS_BAD:
        case CKR_ATTRIBUTE_TYPE_INVALID:
        case CKR_ATTRIBUTE_VALUE_INVALID:
            return NTE_INVALID_PARAMETER;
        case CKR_DEVICE_MEMORY:
            return NTE_NO_MEMORY;
        case CKR_OBJECT_HANDLE_INVALID:
        case CKR_SESSION_HANDLE_INVALID:
            return NTE_INVALID_HANDLE;
        default:
            return NTE_INTERNAL_ERROR;
    }
}
