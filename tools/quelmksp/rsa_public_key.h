// An RSA public key as the client compares and encodes it: the exponent and
// the modulus as big-endian integers without leading zero bytes, so that
// two encodings of one key compare equal.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "secret_bytes.h"

struct RsaPublicKey {
    SecretBytes exponent;
    SecretBytes modulus;
    // The length of the modulus in bits.
    size_t Bits() const;
};

// Big-endian bytes, leading zeros and all.
RsaPublicKey MakeRsaPublicKey(const uint8_t* exponent, size_t exponentSize, const uint8_t* modulus,
                              size_t modulusSize);

// A BCRYPT_RSAKEY_BLOB with the "RSA1" magic: six little-endian DWORDs
// (magic, bit length, exponent size, modulus size and two prime sizes),
// then the exponent and the modulus, both big-endian. nullopt when the
// bytes are not such a blob.
std::optional<RsaPublicKey> ParseRsaPublicBlob(const uint8_t* blob, size_t size);

bool operator==(const RsaPublicKey& a, const RsaPublicKey& b);
