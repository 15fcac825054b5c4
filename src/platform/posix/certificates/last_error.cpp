#include "quelmcert.h"

namespace {

// One value per thread for the whole process: the provider, the client and
// this library all reach it through these two functions.
thread_local DWORD t_lastError = 0;

}  // namespace

extern "C" DWORD GetLastError(void) {
    return t_lastError;
}

extern "C" void SetLastError(DWORD dwErrCode) {
    t_lastError = dwErrCode;
}
