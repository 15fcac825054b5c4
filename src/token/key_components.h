// Setting the byte components of a token key: each setter replaces the old
// value (wiped) with a copy of the new one, and ignores an absent source.
#pragma once

#include <cstdint>

#include "platform/secure_buffer.h"

using KeyBytes = platform::SecureBuffer<uint8_t>;

// Replaces target with a copy of length bytes of source; a null source or a
// zero length leaves target as it is.
inline void ReplaceComponent(KeyBytes& target, const uint8_t* source, size_t length) {
    if (!source || length == 0) return;
    target = KeyBytes::CopyOf(source, length);
}

// The public exponent travels as 4 bytes and the key identifier as 64,
// whatever the source holds beyond them.
inline constexpr size_t kPublicExponentBytes = 4;
inline constexpr size_t kKeyIdBytes = 64;
