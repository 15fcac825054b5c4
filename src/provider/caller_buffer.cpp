#include "provider/caller_buffer.h"

#include <cstdlib>

void* AllocateCallerBuffer(size_t bytes) {
    return std::calloc(1, bytes);
}

void ReleaseCallerBuffer(void* block) {
    std::free(block);
}
