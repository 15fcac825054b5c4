// The public half of a token key as an RSA public key blob.
#pragma once

#include <cstdint>

#include "keys/rsa_key_blob.h"
#include "token/key_components.h"
#include "token/pkcs11.h"

class PublicKeyBlob {
public:
    PublicKeyBlob() = default;
    virtual ~PublicKeyBlob() = default;
    PublicKeyBlob(const PublicKeyBlob&) = delete;
    PublicKeyBlob& operator=(const PublicKeyBlob&) = delete;

    // Reads modulus and public exponent of the public key object. A status.
    int32_t ReadFromToken(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE publicKey);

    // Without output, sets *length to the blob's length. With output, also
    // writes the blob there when both parts have been read; the caller has
    // checked that the output holds *length bytes.
    void Serialize(uint8_t* output, uint32_t* length) const;

    const RsaKeyBlobHeader& header() const { return header_; }
    const KeyBytes& modulus() const { return modulus_; }
    const KeyBytes& publicExponent() const { return publicExponent_; }

protected:
    KeyBytes modulus_;
    // As the blob carries it: read from the token, that is the token's
    // bytes in reverse order.
    KeyBytes publicExponent_;
    RsaKeyBlobHeader header_;
};
