// The RSA key blob that callers exchange with the provider, in the layout
// of the platform's BCRYPT_RSAKEY_BLOB: six little-endian DWORDs, then the
// public exponent, the modulus and, in a private blob, the two primes, each
// big-endian.
#pragma once

#include <cstddef>
#include <cstdint>

struct RsaKeyBlobHeader {
    static constexpr size_t kBytes = 24;

    uint32_t Magic = 0;
    uint32_t BitLength = 0;
    uint32_t cbPublicExp = 0;
    uint32_t cbModulus = 0;
    uint32_t cbPrime1 = 0;
    uint32_t cbPrime2 = 0;

    // Reads the header from at least kBytes bytes.
    static RsaKeyBlobHeader ReadFrom(const uint8_t* bytes);
    // Writes the header into at least kBytes bytes.
    void WriteTo(uint8_t* bytes) const;
};
