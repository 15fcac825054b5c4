// Blocks that the provider hands to its caller, who gives them back through
// FreeBuffer. Each result is one allocation, so one call releases it all.
#pragma once

#include <cstddef>

void* AllocateCallerBuffer(size_t bytes);
void ReleaseCallerBuffer(void* block);
