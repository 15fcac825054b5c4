#include "platform/secure_zero.h"

#include <string.h>

namespace platform {

void SecureZero(void* memory, size_t length) {
    if (memory && length) explicit_bzero(memory, length);
}

}  // namespace platform
