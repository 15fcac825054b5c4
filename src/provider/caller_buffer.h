// Blocks that the provider hands to its caller, who gives them back through
// FreeBuffer. Each result is one allocation, so one call releases it all.
#pragma once

#include <cstddef>

#include "provider/handle_registry.h"

// A zeroed block, recorded as live until the caller gives it back.
void* AllocateCallerBuffer(size_t bytes, HandleKind kind = HandleKind::kBuffer);
// Releases a block the provider handed out; anything else, a block given
// back already included, is left alone.
void ReleaseCallerBuffer(void* block);

struct CallerBufferRelease {
    void operator()(void* block) const { ReleaseCallerBuffer(block); }
};
