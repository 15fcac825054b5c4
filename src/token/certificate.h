#pragma once

#include "token/cryptoki_object.h"
#include "token/key_components.h"

// A key pair's X.509 certificate on the token.
class Certificate : public CryptokiObject {
public:
    ~Certificate() override = default;

    CK_BBOOL fHasPublicKey = 0;
    CK_BBOOL fHasPrivateKey = 0;
    CK_OBJECT_HANDLE hPublicKey = 0;
    CK_OBJECT_HANDLE hPrivateKey = 0;
    KeyBytes pbValue;
    uint32_t cbValue = 0;
    KeyBytes pbId;
    uint32_t cbId = 0;
    KeyBytes pbLabel;
    KeyBytes pbIssuer;
    KeyBytes pbSerialNumber;
    KeyBytes pbSubject;
};
