#pragma once

#include "token/cryptoki_object.h"
#include "token/key_components.h"

class PublicKey : public CryptokiObject {
public:
    ~PublicKey() override = default;

    void SetModulus(const uint8_t* modulus, uint32_t length);
    void SetPublicExponent(const uint8_t* exponent);
    void SetId(const uint8_t* id);

    // Creates the public key object on the token: a token object when a
    // label is given, a session object otherwise.
    CK_RV CreatePublicKeyObject(int usage, const uint8_t* label, uint32_t labelLength);

    uint32_t dwModulusBits = 0;
    CK_BBOOL bEncrypt = 0;
    CK_BBOOL bVerify = 0;
    KeyBytes pbId;
    KeyBytes pbPublicExponent;
    KeyBytes pbModulus;
    uint32_t cbPublicExponent = 0;
};
