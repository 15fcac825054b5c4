#pragma once

#include <cstddef>

namespace platform {

// Overwrites memory with zeros in a way the compiler may not drop, for
// secrets that are about to be released.
void SecureZero(void* memory, size_t length);

}  // namespace platform
