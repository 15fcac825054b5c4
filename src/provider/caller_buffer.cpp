#include "provider/caller_buffer.h"

#include <cstdlib>

void* AllocateCallerBuffer(size_t bytes, HandleKind kind) {
    void* block = std::calloc(1, bytes);
    if (block) g_pHandles->Add(block, kind);
    return block;
}

void ReleaseCallerBuffer(void* block) {
    if (block && g_pHandles->RemoveBuffer(block)) std::free(block);
}
