// Key names: how a token key is known to callers.
//
// A key's name is its CKA_ID read as characters, one UTF-16 unit per byte,
// up to the first zero byte. Callers may also give the hexadecimal form of
// the CKA_ID: "4142" stands for the name "AB".
#pragma once

#include <cstdint>

#include "platform/wide_string.h"
#include "provider/ncrypt_provider.h"

// The name made from a CKA_ID, or from a label when there is no CKA_ID.
SECURITY_STATUS ConvertIdToKeyName(const uint8_t* id, uint32_t idLength, const uint8_t* label,
                                   uint32_t labelLength, platform::WideString* name);

// The key name that a hexadecimal form stands for. A malformed form gives an
// empty name and sets the thread's last error to NTE_INVALID_PARAMETER.
platform::WideString HexToKeyName(platform::WideView text);

// Whether a name that a caller gave selects the key with the given name: the
// given name must begin with the key's name, ignoring the case of A to Z.
bool SelectsKeyName(platform::WideView given, platform::WideView keyName);
