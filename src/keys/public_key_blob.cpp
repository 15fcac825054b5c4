#include "keys/public_key_blob.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "provider/ncrypt_provider.h"
#include "token/cryptoki_library.h"

int32_t PublicKeyBlob::ReadFromToken(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE publicKey) {
    if (!g_pCryptoki || publicKey == 0 || session == 0) return NTE_INVALID_PARAMETER;
    CK_FUNCTION_LIST& token = *g_pCryptoki->functions();
    CK_ATTRIBUTE parts[] = {{CKA_MODULUS, nullptr, 0},
                            {CKA_MODULUS_BITS, nullptr, 0},
                            {CKA_PUBLIC_EXPONENT, nullptr, 0}};
    if (token.C_GetAttributeValue(session, publicKey, parts, 3) != CKR_OK)
        return NTE_INTERNAL_ERROR;
    CK_ULONG modulusBits = 0;
    if (parts[1].ulValueLen != sizeof modulusBits) return NTE_INTERNAL_ERROR;
    KeyBytes modulus, exponent;
    try {
        modulus = KeyBytes(parts[0].ulValueLen);
        exponent = KeyBytes(parts[2].ulValueLen);
    } catch (const std::bad_alloc&) {
        return NTE_INTERNAL_ERROR;
    }
    parts[0].pValue = modulus.get();
    parts[1].pValue = &modulusBits;
    parts[2].pValue = exponent.get();
    if (token.C_GetAttributeValue(session, publicKey, parts, 3) != CKR_OK)
        return NTE_INTERNAL_ERROR;

    // The blob's length comes from the modulus itself; the token's bit count
    // is read but not trusted for it.
    modulus_ = std::move(modulus);
    header_.cbModulus = static_cast<uint32_t>(modulus_.size());
    header_.Magic = BCRYPT_RSAPUBLIC_MAGIC;
    header_.BitLength = 8 * header_.cbModulus;
    header_.cbPublicExp = static_cast<uint32_t>(exponent.size());
    std::reverse(exponent.get(), exponent.get() + exponent.size());
    publicExponent_ = std::move(exponent);
    return ERROR_SUCCESS;
}

void PublicKeyBlob::Serialize(uint8_t* output, uint32_t* length) const {
    *length =
        static_cast<uint32_t>(RsaKeyBlobHeader::kBytes) + header_.cbPublicExp + header_.cbModulus;
    if (!output || !modulus_ || !publicExponent_) return;
    RsaKeyBlobHeader written = header_;
    written.cbPrime1 = 0;
    written.cbPrime2 = 0;
    written.WriteTo(output);
    uint8_t* at = output + RsaKeyBlobHeader::kBytes;
    std::memcpy(at, publicExponent_.get(), header_.cbPublicExp);
    std::memcpy(at + header_.cbPublicExp, modulus_.get(), header_.cbModulus);
}
