#include "platform/last_error.h"

#include "platform/posix/certificates/quelmcert.h"

namespace platform {

// libquelmcert holds the value, so that every module of the process sees the
// same one per thread, as with Windows' own.
void SetLastError(uint32_t error) {
    ::SetLastError(error);
}
uint32_t GetLastError() {
    return ::GetLastError();
}

}  // namespace platform
