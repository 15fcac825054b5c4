#include <cstring>
#include <vector>

#include "provider/ncrypt_provider.h"
#include "token/random_key_id.h"
#include "token/rsa_pair.h"

void RSAPair::SetGenerationDefaults() {
    bModifiable = CK_TRUE;
    bPrivate = CK_TRUE;
    bToken = CK_TRUE;
    bSensitive = CK_FALSE;
    keyType = CKK_RSA;
    mechanism = {CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
    bDerive = CK_FALSE;
    bLocal = CK_TRUE;
    bEncrypt = CK_TRUE;
    bVerify = CK_TRUE;
    bVerifyRecover = CK_FALSE;
    bWrap = CK_FALSE;
    bDecrypt = CK_TRUE;
    bSign = CK_TRUE;
    bSignRecover = CK_FALSE;
    bUnwrap = CK_FALSE;
    hPublicKey = 0;
    hPrivateKey = 0;
    pCryptoki = nullptr;
    hSession = 0;
    dwModulusBits = 0;
}

int32_t RSAPair::GenerateKeyPair(const char* label) {
    if (!Bound()) return NTE_INVALID_PARAMETER;
    CK_ULONG labelLength = label ? std::strlen(label) : 0;

    CK_RV rv = GenerateNonZeroId(Token(), hSession, rgbId, sizeof rgbId);
    if (rv != CKR_OK) return MapCkrToStatus(rv);

    CK_OBJECT_CLASS publicClass = CKO_PUBLIC_KEY;
    CK_OBJECT_CLASS privateClass = CKO_PRIVATE_KEY;
    CK_ULONG modulusBits = dwModulusBits;
    CK_BYTE exponent[] = {0x01, 0x00, 0x01};
    CK_VOID_PTR labelBytes = const_cast<char*>(label);
    std::vector<CK_ATTRIBUTE> publicTemplate = {
        {CKA_CLASS, &publicClass, sizeof publicClass},
        {CKA_MODIFIABLE, &bModifiable, 1},
        {CKA_KEY_TYPE, &keyType, sizeof keyType},
        {CKA_DERIVE, &bDerive, 1},
        {CKA_LOCAL, &bLocal, 1},
        {CKA_TOKEN, &bToken, 1},
        {CKA_MODULUS, nullptr, dwModulusBits / 8},
        {CKA_MODULUS_BITS, &modulusBits, sizeof modulusBits},
        {CKA_PUBLIC_EXPONENT, exponent, sizeof exponent},
        {CKA_ENCRYPT, &bEncrypt, 1},
        {CKA_VERIFY, &bVerify, 1},
        {CKA_VERIFY_RECOVER, &bVerifyRecover, 1},
        {CKA_WRAP, &bWrap, 1},
        {CKA_ID, rgbId, sizeof rgbId},
    };
    std::vector<CK_ATTRIBUTE> privateTemplate = {
        {CKA_CLASS, &privateClass, sizeof privateClass},
        {CKA_MODIFIABLE, &bModifiable, 1},
        {CKA_PRIVATE, &bPrivate, 1},
        {CKA_TOKEN, &bToken, 1},
        {CKA_SENSITIVE, &bSensitive, 1},
        {CKA_DERIVE, &bDerive, 1},
        {CKA_LOCAL, &bLocal, 1},
        {CKA_DECRYPT, &bDecrypt, 1},
        {CKA_SIGN, &bSign, 1},
        {CKA_SIGN_RECOVER, &bSignRecover, 1},
        {CKA_UNWRAP, &bUnwrap, 1},
        {CKA_ID, rgbId, sizeof rgbId},
    };
    if (label) {
        publicTemplate.push_back({CKA_LABEL, labelBytes, labelLength});
        privateTemplate.push_back({CKA_LABEL, labelBytes, labelLength});
    }
    rv = Token().C_GenerateKeyPair(hSession, &mechanism, publicTemplate.data(),
                                   publicTemplate.size(), privateTemplate.data(),
                                   privateTemplate.size(), &hPublicKey, &hPrivateKey);
    return MapCkrToStatus(rv);
}
