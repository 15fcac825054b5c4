#include "platform/last_error.h"

namespace platform {
namespace {

thread_local uint32_t t_lastError = 0;

}  // namespace

void SetLastError(uint32_t error) {
    t_lastError = error;
}
uint32_t GetLastError() {
    return t_lastError;
}

}  // namespace platform
