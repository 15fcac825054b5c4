#include "platform/secure_zero.h"

#include <windows.h>

namespace platform {

void SecureZero(void* memory, size_t length) {
    if (memory && length) SecureZeroMemory(memory, length);
}

}  // namespace platform
