#include "token/rsa_pair.h"

#include "crypto/digest_info.h"
#include "platform/secure_zero.h"
#include "provider/ncrypt_provider.h"

namespace {

CK_MECHANISM Pkcs1() {
    return {CKM_RSA_PKCS, nullptr, 0};
}

// PKCS#1 v1.5 takes at most this many bytes less than the modulus.
constexpr uint32_t kPkcs1Overhead = 11;

int32_t OutputStatus(CK_RV rv) {
    if (rv == CKR_OK) return ERROR_SUCCESS;
    return rv == CKR_BUFFER_TOO_SMALL ? NTE_BUFFER_TOO_SMALL : NTE_INTERNAL_ERROR;
}

}  // namespace

bool RSAPair::FitsModulus(size_t length, uint32_t overhead, bool exactly) const {
    if (dwModulusBits == 0) return true;
    size_t modulusBytes = dwModulusBits / 8;
    if (exactly) return length == modulusBytes;
    return modulusBytes >= overhead && length <= modulusBytes - overhead;
}

RSAPair::~RSAPair() {
    platform::SecureZero(rgbId, sizeof rgbId);
}

int32_t RSAPair::SignData(const uint8_t* hash, uint32_t hashLength, uint8_t* signature,
                          CK_ULONG* signatureLength) {
    if (!Bound() || !hPrivateKey || !hash || !signatureLength) return NTE_INVALID_PARAMETER;
    auto data = digest_info::ForSigning({hash, hashLength});
    if (!data) return NTE_INVALID_PARAMETER;
    mechanism = Pkcs1();
    if (Token().C_SignInit(hSession, &mechanism, hPrivateKey) != CKR_OK) return NTE_INTERNAL_ERROR;
    return OutputStatus(
        Token().C_Sign(hSession, data->data(), data->size(), signature, signatureLength));
}

// A bare hash is wrapped as signing wraps it, so that a caller can verify
// exactly what it asked to have signed.
int32_t RSAPair::VerifyData(const uint8_t* hash, uint32_t hashLength, const uint8_t* signature,
                            uint32_t signatureLength) {
    if (!Bound() || !hPublicKey || !hash || !signature) return NTE_INVALID_PARAMETER;
    // Before anything is read: what the key cannot have signed is no match.
    if (!FitsModulus(signatureLength, 0, true) || !FitsModulus(hashLength, kPkcs1Overhead))
        return NTE_FAIL;
    auto data = digest_info::ForSigning({hash, hashLength});
    std::vector<uint8_t> asGiven(hash, hash + hashLength);
    std::vector<uint8_t>& signed_ = data ? *data : asGiven;
    if (!FitsModulus(signed_.size(), kPkcs1Overhead)) return NTE_FAIL;
    mechanism = Pkcs1();
    if (Token().C_VerifyInit(hSession, &mechanism, hPublicKey) != CKR_OK) return NTE_INTERNAL_ERROR;
    CK_RV rv = Token().C_Verify(hSession, signed_.data(), signed_.size(),
                                const_cast<uint8_t*>(signature), signatureLength);
    return rv == CKR_OK ? ERROR_SUCCESS : NTE_FAIL;
}

int32_t RSAPair::EncryptData(const uint8_t* input, uint32_t inputLength, uint8_t* output,
                             CK_ULONG* outputLength) {
    if (!Bound() || !hPublicKey || !input || !outputLength) return NTE_INVALID_PARAMETER;
    if (!FitsModulus(inputLength, kPkcs1Overhead)) return NTE_INTERNAL_ERROR;
    mechanism = Pkcs1();
    if (Token().C_EncryptInit(hSession, &mechanism, hPublicKey) != CKR_OK)
        return NTE_INTERNAL_ERROR;
    return OutputStatus(Token().C_Encrypt(hSession, const_cast<uint8_t*>(input), inputLength,
                                          output, outputLength));
}

int32_t RSAPair::DecryptData(const uint8_t* input, uint32_t inputLength, uint8_t* output,
                             CK_ULONG* outputLength) {
    if (!Bound() || !hPrivateKey || !input || !outputLength) return NTE_INVALID_PARAMETER;
    if (!FitsModulus(inputLength, 0, true)) return NTE_INTERNAL_ERROR;
    mechanism = Pkcs1();
    switch (Token().C_DecryptInit(hSession, &mechanism, hPrivateKey)) {
        case CKR_OK:
            break;
        case CKR_KEY_FUNCTION_NOT_PERMITTED:
            return NTE_PERM;
        case CKR_KEY_HANDLE_INVALID:
        case CKR_SESSION_HANDLE_INVALID:
            return NTE_INVALID_HANDLE;
        default:
            return NTE_INTERNAL_ERROR;
    }
    return OutputStatus(Token().C_Decrypt(hSession, const_cast<uint8_t*>(input), inputLength,
                                          output, outputLength));
}
