#include "rsa_public_key.h"

namespace {

constexpr uint32_t kRsaPublicMagic = 0x31415352;  // "RSA1"
constexpr size_t kHeaderSize = 6 * 4;

SecretBytes WithoutLeadingZeros(const uint8_t* bytes, size_t size) {
    while (size > 0 && *bytes == 0) {
        ++bytes;
        --size;
    }
    return SecretBytes(bytes, bytes + size);
}

uint32_t LittleEndian32(const uint8_t* bytes) {
    return static_cast<uint32_t>(bytes[0]) | static_cast<uint32_t>(bytes[1]) << 8 |
           static_cast<uint32_t>(bytes[2]) << 16 | static_cast<uint32_t>(bytes[3]) << 24;
}

}  // namespace

size_t RsaPublicKey::Bits() const {
    if (modulus.empty()) return 0;
    size_t bits = (modulus.size() - 1) * 8;
    for (unsigned top = modulus[0]; top != 0; top >>= 1) ++bits;
    return bits;
}

RsaPublicKey MakeRsaPublicKey(const uint8_t* exponent, size_t exponentSize, const uint8_t* modulus,
                              size_t modulusSize) {
    return RsaPublicKey{WithoutLeadingZeros(exponent, exponentSize),
                        WithoutLeadingZeros(modulus, modulusSize)};
}

std::optional<RsaPublicKey> ParseRsaPublicBlob(const uint8_t* blob, size_t size) {
    if (size < kHeaderSize || LittleEndian32(blob) != kRsaPublicMagic) return std::nullopt;
    const size_t exponentSize = LittleEndian32(blob + 8);
    const size_t modulusSize = LittleEndian32(blob + 12);
    if (exponentSize == 0 || modulusSize == 0 || exponentSize > size - kHeaderSize ||
        modulusSize > size - kHeaderSize - exponentSize)
        return std::nullopt;
    const uint8_t* exponent = blob + kHeaderSize;
    RsaPublicKey key =
        MakeRsaPublicKey(exponent, exponentSize, exponent + exponentSize, modulusSize);
    if (key.exponent.empty() || key.modulus.empty()) return std::nullopt;
    return key;
}

bool operator==(const RsaPublicKey& a, const RsaPublicKey& b) {
    return a.exponent == b.exponent && a.modulus == b.modulus;
}
