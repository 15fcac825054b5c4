#include "platform/last_error.h"

#include <windows.h>

namespace platform {

void SetLastError(uint32_t error) {
    ::SetLastError(error);
}
uint32_t GetLastError() {
    return ::GetLastError();
}

}  // namespace platform
