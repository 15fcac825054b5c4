#pragma once

#include "platform/wide_string.h"
#include "token/cryptoki_object.h"
#include "token/key_components.h"

// An RSA key pair on the token: the two objects and the mechanism of the
// next operation on them.
class RSAPair : public CryptokiObject {
public:
    static constexpr size_t kGeneratedIdBytes = 20;

    RSAPair() = default;
    ~RSAPair() override;

    // Sets the attribute values of a newly generated pair: a token pair of
    // a modifiable private key that may sign and decrypt and a public key
    // that may verify and encrypt. Session, binding, length and bToken are
    // the caller's to set.
    void SetGenerationDefaults();

    // Generates the pair on the token under a fresh random CKA_ID, with the
    // label when one is given. A status; the new handles on success.
    int32_t GenerateKeyPair(const char* label);

    // Finds the public and the private key object labelled with the name.
    // NTE_EXISTS when both exist, NTE_NOT_FOUND, or a failure status.
    int32_t FindKeyPairByLabel(const platform::WideChar* keyName);

    // The token operations of a pair, with CKM_RSA_PKCS. Each returns a
    // status; a length pointer carries the buffer's size in and the token's
    // length out, and a null output buffer asks only for the length.
    int32_t SignData(const uint8_t* hash, uint32_t hashLength, uint8_t* signature,
                     CK_ULONG* signatureLength);
    int32_t VerifyData(const uint8_t* hash, uint32_t hashLength, const uint8_t* signature,
                       uint32_t signatureLength);
    int32_t EncryptData(const uint8_t* input, uint32_t inputLength, uint8_t* output,
                        CK_ULONG* outputLength);
    int32_t DecryptData(const uint8_t* input, uint32_t inputLength, uint8_t* output,
                        CK_ULONG* outputLength);

    // Whether a length the token would be handed fits the key, so that a
    // caller who overstates a buffer's length is refused before the token
    // reads past it: at most the modulus length less overhead, or exactly
    // the modulus length. Without a known key length every length passes.
    bool FitsModulus(size_t length, uint32_t overhead, bool exactly = false) const;

    CK_OBJECT_HANDLE hPublicKey = 0;
    CK_OBJECT_HANDLE hPrivateKey = 0;
    uint8_t rgbId[kGeneratedIdBytes] = {};
    CK_KEY_TYPE keyType = CKK_RSA;
    CK_MECHANISM mechanism = {0, nullptr, 0};
    KeyBytes pbModulus;
    KeyBytes pbPublicExponent;
    uint32_t cbPublicExponent = 0;
    uint32_t dwModulusBits = 0;
    CK_BBOOL bDerive = 0;
    CK_BBOOL bLocal = 0;
    CK_BBOOL bEncrypt = 0;
    CK_BBOOL bVerify = 0;
    CK_BBOOL bVerifyRecover = 0;
    CK_BBOOL bWrap = 0;
    CK_BBOOL bDecrypt = 0;
    CK_BBOOL bSign = 0;
    CK_BBOOL bSignRecover = 0;
    CK_BBOOL bUnwrap = 0;
};
