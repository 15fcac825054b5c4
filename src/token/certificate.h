#pragma once

#include "token/cryptoki_object.h"
#include "token/key_components.h"

// A key pair's X.509 certificate on the token: a certificate object that
// carries the pair's CKA_ID.
class Certificate : public CryptokiObject {
public:
    ~Certificate() override = default;

    // Whether the token holds a certificate object for the pair: NTE_EXISTS,
    // NTE_NOT_FOUND or a failure status. Both key handles must be set.
    int32_t FindExistingCertificate();

    // Stores the DER certificate as a certificate object beside the pair. A
    // status; on success hObject is the new object.
    int32_t WriteCertificate(const uint8_t* der, uint32_t length);

    CK_BBOOL fHasPublicKey = 0;
    CK_BBOOL fHasPrivateKey = 0;
    CK_OBJECT_HANDLE hPublicKey = 0;
    CK_OBJECT_HANDLE hPrivateKey = 0;
    KeyBytes pbValue;
    uint32_t cbValue = 0;
    KeyBytes pbId;
    uint32_t cbId = 0;
    KeyBytes pbLabel;
    uint32_t cbLabel = 0;
    KeyBytes pbIssuer;
    uint32_t cbIssuer = 0;
    KeyBytes pbSerialNumber;
    uint32_t cbSerialNumber = 0;
    KeyBytes pbSubject;
    uint32_t cbSubject = 0;

private:
    // The pair's CKA_ID, from the private key object when there is one.
    CK_RV ReadPairId();
};
