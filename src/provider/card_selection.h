// The card selection dialog, through which the user picks a reader when the
// provider cannot choose the token by itself.
#pragma once

#include <cstdint>

#include "platform/wide_string.h"

inline constexpr size_t kSelectedReaderChars = 1024;

// Lets the user choose a reader. Returns 0 with the reader name in
// readerName (kSelectedReaderChars characters), or SCARD_E_CANCELLED_BY_USER
// when the user does not confirm.
int32_t SelectCard(platform::WideChar* readerName);
