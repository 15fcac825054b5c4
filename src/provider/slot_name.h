#pragma once

#include "platform/wide_string.h"
#include "token/pkcs11.h"

// The reader name of a slot: its description, at most 32 characters, with
// trailing blanks dropped. The first character always stays, even a blank.
platform::WideString SlotName(const CK_SLOT_INFO& info);

// The longest reader name a provider keeps.
inline constexpr size_t kReaderNameChars = 32;
