#include "token/public_key.h"

#include <vector>

void PublicKey::SetModulus(const uint8_t* modulus, uint32_t length) {
    if (!modulus || length == 0) return;
    ReplaceComponent(pbModulus, modulus, length);
    dwModulusBits = pbModulus ? 8 * length : 0;
}

void PublicKey::SetPublicExponent(const uint8_t* exponent) {
    ReplaceComponent(pbPublicExponent, exponent, kPublicExponentBytes);
    cbPublicExponent = pbPublicExponent ? kPublicExponentBytes : 0;
}

void PublicKey::SetId(const uint8_t* id) {
    ReplaceComponent(pbId, id, kKeyIdBytes);
}

CK_RV PublicKey::CreatePublicKeyObject(int usage, const uint8_t* label, uint32_t labelLength) {
    if (!Bound() || hObject != 0) return CKR_ARGUMENTS_BAD;
    if (!IsSupportedModulusBits(dwModulusBits)) return CKR_ARGUMENTS_BAD;
    if (!pbPublicExponent || !pbModulus || !pbId) return CKR_TEMPLATE_INCOMPLETE;

    bModifiable = CK_TRUE;
    objectClass = CKO_PUBLIC_KEY;
    bPrivate = CK_FALSE;
    bExtractable = CK_TRUE;
    bEncrypt = UsageEncrypts(usage) ? CK_TRUE : CK_FALSE;
    bVerify = UsageSigns(usage) ? CK_TRUE : CK_FALSE;
    // Without a label the key only lives as long as the session.
    bToken = label ? CK_TRUE : CK_FALSE;

    CK_ULONG modulusBits = dwModulusBits;
    std::vector<CK_ATTRIBUTE> attributes = {
        {CKA_CLASS, &objectClass, sizeof objectClass},
        {CKA_TOKEN, &bToken, 1},
        {CKA_PRIVATE, &bPrivate, 1},
        {CKA_MODIFIABLE, &bModifiable, 1},
        {CKA_EXTRACTABLE, &bExtractable, 1},
        {CKA_ID, pbId.get(), kKeyIdBytes},
        {CKA_PUBLIC_EXPONENT, pbPublicExponent.get(), cbPublicExponent},
        {CKA_MODULUS, pbModulus.get(), dwModulusBits / 8},
        {CKA_MODULUS_BITS, &modulusBits, sizeof modulusBits},
        {CKA_ENCRYPT, &bEncrypt, 1},
        {CKA_VERIFY, &bVerify, 1},
    };
    if (label) attributes.push_back({CKA_LABEL, const_cast<uint8_t*>(label), labelLength});
    return Token().C_CreateObject(hSession, attributes.data(), attributes.size(), &hObject);
}
