#include <new>

#include "platform/text.h"
#include "provider/ncrypt_provider.h"
#include "token/object_search.h"
#include "token/rsa_pair.h"

namespace {

// The one object of the class that carries the label, or 0.
int32_t FindLabelled(CK_FUNCTION_LIST& token, CK_SESSION_HANDLE session,
                     CK_OBJECT_CLASS objectClass, std::string& label, CK_OBJECT_HANDLE* found) {
    CK_ATTRIBUTE search[] = {{CKA_CLASS, &objectClass, sizeof objectClass},
                             {CKA_LABEL, label.data(), static_cast<CK_ULONG>(label.size())}};
    ObjectSearch result = FindObjects(token, session, search, 2, found, 1);
    if (result.rv != CKR_OK || result.finalRv != CKR_OK) return NTE_INTERNAL_ERROR;
    return result.found == 0 ? NTE_NOT_FOUND : ERROR_SUCCESS;
}

}  // namespace

int32_t RSAPair::FindKeyPairByLabel(const platform::WideChar* keyName) {
    if (!Bound() || !keyName) return NTE_INVALID_PARAMETER;
    std::string label = platform::ToAnsi(keyName);

    hPublicKey = 0;
    hPrivateKey = 0;
    if (int32_t status = FindLabelled(Token(), hSession, CKO_PUBLIC_KEY, label, &hPublicKey))
        return status;
    if (int32_t status = FindLabelled(Token(), hSession, CKO_PRIVATE_KEY, label, &hPrivateKey))
        return status;

    CK_ATTRIBUTE publicPart[] = {{CKA_MODULUS, nullptr, 0},
                                 {CKA_MODULUS_BITS, nullptr, 0},
                                 {CKA_PUBLIC_EXPONENT, nullptr, 0}};
    if (Token().C_GetAttributeValue(hSession, hPublicKey, publicPart, 3) != CKR_OK)
        return NTE_INTERNAL_ERROR;
    CK_ULONG modulusBits = 0;
    if (publicPart[1].ulValueLen != sizeof modulusBits) return NTE_INTERNAL_ERROR;
    try {
        pbModulus = KeyBytes(publicPart[0].ulValueLen);
        pbPublicExponent = KeyBytes(publicPart[2].ulValueLen);
    } catch (const std::bad_alloc&) {
        return NTE_INTERNAL_ERROR;
    }
    publicPart[0].pValue = pbModulus.get();
    publicPart[1].pValue = &modulusBits;
    publicPart[2].pValue = pbPublicExponent.get();
    if (Token().C_GetAttributeValue(hSession, hPublicKey, publicPart, 3) != CKR_OK)
        return NTE_INTERNAL_ERROR;
    cbPublicExponent = static_cast<uint32_t>(pbPublicExponent.size());
    dwModulusBits = static_cast<uint32_t>(modulusBits);

    CK_ATTRIBUTE privatePart[] = {{CKA_SIGN, &bSign, 1}, {CKA_DECRYPT, &bDecrypt, 1}};
    if (Token().C_GetAttributeValue(hSession, hPrivateKey, privatePart, 2) != CKR_OK)
        return NTE_INTERNAL_ERROR;
    return NTE_EXISTS;
}
