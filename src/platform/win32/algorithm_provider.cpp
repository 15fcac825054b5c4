#include "platform/algorithm_provider.h"

#include <windows.h>
// bcrypt.h needs the types that windows.h defines.
#include <bcrypt.h>

namespace platform {

int32_t OpenRsaAlgorithmProvider(AlgorithmHandle* handle) {
    BCRYPT_ALG_HANDLE opened = nullptr;
    NTSTATUS status = BCryptOpenAlgorithmProvider(&opened, BCRYPT_RSA_ALGORITHM, nullptr, 0);
    if (status == 0) *handle = opened;
    return status;
}

}  // namespace platform
