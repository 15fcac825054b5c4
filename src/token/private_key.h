#pragma once

#include "token/cryptoki_object.h"
#include "token/key_components.h"

class PrivateKey : public CryptokiObject {
public:
    ~PrivateKey() override = default;

    void SetModulus(const uint8_t* modulus, uint32_t length);
    void SetPublicExponent(const uint8_t* exponent);
    void SetId(const uint8_t* id);
    void SetPrivateExponent(const uint8_t* exponent, uint32_t length);
    void SetPrimes(const uint8_t* prime1, uint32_t length1, const uint8_t* prime2,
                   uint32_t length2);
    void SetExponents(const uint8_t* exponent1, uint32_t length1, const uint8_t* exponent2,
                      uint32_t length2);
    void SetCoefficient(const uint8_t* coefficient, uint32_t length);

    // Creates the private key object on the token from the components set.
    // The private exponent may be absent: the token derives it from the
    // primes.
    CK_RV CreatePrivateKeyObject(int usage, const uint8_t* label, uint32_t labelLength);

    uint32_t dwModulusBits = 0;
    CK_BBOOL bDecrypt = 0;
    CK_BBOOL bSign = 0;
    KeyBytes pbId;
    KeyBytes pbPublicExponent;
    uint32_t cbPublicExponent = 0;
    KeyBytes pbPrivateExponent;
    uint32_t cbPrivateExponent = 0;
    KeyBytes pbModulus;
    KeyBytes pbPrime1;
    KeyBytes pbPrime2;
    KeyBytes pbExponent1;
    KeyBytes pbExponent2;
    KeyBytes pbCoefficient;
    uint32_t cbPrime1 = 0;
    uint32_t cbPrime2 = 0;
    uint32_t cbExponent1 = 0;
    uint32_t cbExponent2 = 0;
    uint32_t cbCoefficient = 0;
};
