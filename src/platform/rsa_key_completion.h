// The private values of an RSA key that a key blob leaves out: a blob of
// the public exponent, the modulus and the two primes describes the whole
// key, but a card's module expects every value of it.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/secure_buffer.h"

namespace platform {

struct RsaPrivateValues {
    // Each big-endian and as long as the key length makes it: the private
    // exponent as the modulus, the others as a prime.
    SecureBuffer<uint8_t> privateExponent;
    SecureBuffer<uint8_t> exponent1;
    SecureBuffer<uint8_t> exponent2;
    SecureBuffer<uint8_t> coefficient;
};

struct BigEndian {
    const uint8_t* bytes;
    size_t length;
};

// Derives d, d mod (p-1), d mod (q-1) and q^-1 mod p from e, n, p and q.
// False when the values do not make an RSA key (the primes do not multiply
// to the modulus, or e has no inverse) or memory runs out.
bool CompleteRsaPrivateKey(BigEndian exponent, BigEndian modulus, BigEndian prime1,
                           BigEndian prime2, RsaPrivateValues* values);

}  // namespace platform
