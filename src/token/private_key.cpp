#include "token/private_key.h"

#include <vector>

namespace {

uint32_t LengthOf(const KeyBytes& buffer) {
    return static_cast<uint32_t>(buffer.size());
}

}  // namespace

void PrivateKey::SetModulus(const uint8_t* modulus, uint32_t length) {
    if (!modulus || length == 0) return;
    ReplaceComponent(pbModulus, modulus, length);
    dwModulusBits = pbModulus ? 8 * length : 0;
}

void PrivateKey::SetPublicExponent(const uint8_t* exponent) {
    ReplaceComponent(pbPublicExponent, exponent, kPublicExponentBytes);
    cbPublicExponent = LengthOf(pbPublicExponent);
}

void PrivateKey::SetId(const uint8_t* id) {
    ReplaceComponent(pbId, id, kKeyIdBytes);
}

void PrivateKey::SetPrivateExponent(const uint8_t* exponent, uint32_t length) {
    ReplaceComponent(pbPrivateExponent, exponent, length);
    cbPrivateExponent = LengthOf(pbPrivateExponent);
}

void PrivateKey::SetPrimes(const uint8_t* prime1, uint32_t length1, const uint8_t* prime2,
                           uint32_t length2) {
    if (!prime1 || !prime2 || length1 == 0 || length2 == 0) return;
    ReplaceComponent(pbPrime1, prime1, length1);
    ReplaceComponent(pbPrime2, prime2, length2);
    cbPrime1 = LengthOf(pbPrime1);
    cbPrime2 = LengthOf(pbPrime2);
}

void PrivateKey::SetExponents(const uint8_t* exponent1, uint32_t length1, const uint8_t* exponent2,
                              uint32_t length2) {
    if (!exponent1 || !exponent2 || length1 == 0 || length2 == 0) return;
    ReplaceComponent(pbExponent1, exponent1, length1);
    ReplaceComponent(pbExponent2, exponent2, length2);
    cbExponent1 = LengthOf(pbExponent1);
    cbExponent2 = LengthOf(pbExponent2);
}

void PrivateKey::SetCoefficient(const uint8_t* coefficient, uint32_t length) {
    ReplaceComponent(pbCoefficient, coefficient, length);
    cbCoefficient = LengthOf(pbCoefficient);
}

CK_RV PrivateKey::CreatePrivateKeyObject(int usage, const uint8_t* label, uint32_t labelLength) {
    if (!Bound() || hObject != 0) return CKR_ARGUMENTS_BAD;
    if (!IsSupportedModulusBits(dwModulusBits)) return CKR_ARGUMENTS_BAD;
    if (!pbPublicExponent || !pbModulus || !pbId || !pbPrime1 || !pbPrime2 || !pbExponent1 ||
        !pbExponent2 || !pbCoefficient)
        return CKR_TEMPLATE_INCOMPLETE;

    objectClass = CKO_PRIVATE_KEY;
    bPrivate = CK_TRUE;
    bExtractable = CK_FALSE;
    bModifiable = CK_TRUE;
    // A card key never leaves the card.
    bSensitive = CK_TRUE;
    bToken = label ? CK_TRUE : CK_FALSE;
    bDecrypt = UsageEncrypts(usage) ? CK_TRUE : CK_FALSE;
    bSign = UsageSigns(usage) ? CK_TRUE : CK_FALSE;

    std::vector<CK_ATTRIBUTE> attributes = {
        {CKA_CLASS, &objectClass, sizeof objectClass},
        {CKA_TOKEN, &bToken, 1},
        {CKA_PRIVATE, &bPrivate, 1},
        {CKA_MODIFIABLE, &bModifiable, 1},
        {CKA_EXTRACTABLE, &bExtractable, 1},
        {CKA_SENSITIVE, &bSensitive, 1},
        {CKA_ID, pbId.get(), kKeyIdBytes},
        {CKA_PUBLIC_EXPONENT, pbPublicExponent.get(), cbPublicExponent},
        {CKA_MODULUS, pbModulus.get(), dwModulusBits / 8},
        {CKA_PRIME_1, pbPrime1.get(), cbPrime1},
        {CKA_PRIME_2, pbPrime2.get(), cbPrime2},
        {CKA_EXPONENT_1, pbExponent1.get(), cbExponent1},
        {CKA_EXPONENT_2, pbExponent2.get(), cbExponent2},
        {CKA_COEFFICIENT, pbCoefficient.get(), cbCoefficient},
        {CKA_DECRYPT, &bDecrypt, 1},
        {CKA_SIGN, &bSign, 1},
    };
    if (pbPrivateExponent)
        attributes.push_back({CKA_PRIVATE_EXPONENT, pbPrivateExponent.get(), cbPrivateExponent});
    if (label) attributes.push_back({CKA_LABEL, const_cast<uint8_t*>(label), labelLength});
    return Token().C_CreateObject(hSession, attributes.data(), attributes.size(), &hObject);
}
