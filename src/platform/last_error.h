// The calling thread's last-error value, as GetLastError/SetLastError keep
// it on Windows.
#pragma once

#include <cstdint>

namespace platform {

void SetLastError(uint32_t error);
uint32_t GetLastError();

}  // namespace platform
