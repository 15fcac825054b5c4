#pragma once

#include <cstdint>

// The name under which the log shows a status, such as "NTE_BAD_FLAGS";
// "0x%08X" text for a status without a name.
const char* StatusName(int32_t status);
