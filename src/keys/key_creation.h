// What key creation, finalization and import share.
#pragma once

#include <cstddef>
#include <optional>

#include "keys/key_context.h"
#include "provider/provider_context.h"

// Whether a key pair labelled with the key's name lives on the token:
// NTE_EXISTS, NTE_NOT_FOUND or a failure status. The handles found are left
// in the key context whatever the result, so that an overwrite can destroy
// them.
SECURITY_STATUS CheckKeyExists(QUELMKSP_KEY& key, const QUELMKSP_PROVIDER& provider);

// A key's name as the token label of its objects: ANSI code page bytes in a
// zeroed 64-byte buffer.
struct TokenLabel {
    static constexpr size_t kBufferBytes = 64;
    // Longest label with its terminator.
    static constexpr size_t kMaxBytes = 63;

    char bytes[kBufferBytes] = {};
    // The bytes written, terminator included.
    size_t converted = 1;
};

// The label of the key's name (an empty label for a key without one), or
// nothing when the name does not fit. A name is never cut: a shortened
// label could equal another key's, and a later overwrite by that name would
// destroy the wrong pair.
std::optional<TokenLabel> LabelForKey(const QUELMKSP_KEY& key);
