// An RSA key blob as import reads it: the header, the public exponent, the
// modulus and, in a private blob, the two primes.
#pragma once

#include "keys/public_key_blob.h"

class PrivateKeyBlob : public PublicKeyBlob {
public:
    ~PrivateKeyBlob() override = default;

    // Reads the blob. NTE_INVALID_PARAMETER without one, NTE_BUFFER_TOO_SMALL
    // when it is shorter than its header says; nothing after the second prime
    // is read, and the magic is not looked at.
    int32_t Parse(const uint8_t* blob, uint32_t length);

    const KeyBytes& prime1() const { return prime1_; }
    const KeyBytes& prime2() const { return prime2_; }

private:
    KeyBytes prime1_;
    KeyBytes prime2_;
};
