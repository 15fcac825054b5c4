// The DER DigestInfo that PKCS#1 v1.5 signs: the prefix of each hash
// function (RFC 8017, section 9.2, note 1), chosen by the length of what the
// caller passes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace digest_info {

inline constexpr uint8_t kMd5Prefix[] = {0x30, 0x20, 0x30, 0x0c, 0x06, 0x08, 0x2a, 0x86, 0x48,
                                         0x86, 0xf7, 0x0d, 0x02, 0x05, 0x05, 0x00, 0x04, 0x10};
inline constexpr uint8_t kSha1Prefix[] = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2b, 0x0e,
                                          0x03, 0x02, 0x1a, 0x05, 0x00, 0x04, 0x14};
inline constexpr uint8_t kSha256Prefix[] = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60,
                                            0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02,
                                            0x01, 0x05, 0x00, 0x04, 0x20};
inline constexpr uint8_t kSha512Prefix[] = {0x30, 0x51, 0x30, 0x0d, 0x06, 0x09, 0x60,
                                            0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02,
                                            0x03, 0x05, 0x00, 0x04, 0x40};

// The data the token signs for an input of this length: a bare MD5, SHA-1,
// SHA-256 or SHA-512 hash gets its prefix; a complete DigestInfo of those,
// or the 36 bytes of MD5 and SHA-1 side by side, is taken as it is. Any
// other length has no row.
std::optional<std::vector<uint8_t>> ForSigning(std::span<const uint8_t> input);

}  // namespace digest_info
