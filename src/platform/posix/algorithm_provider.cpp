#include "platform/algorithm_provider.h"

namespace platform {

// There is no algorithm provider on Linux; an opaque, never-used handle
// stands in for it.
int32_t OpenRsaAlgorithmProvider(AlgorithmHandle* handle) {
    static int rsaProvider = 0;
    *handle = &rsaProvider;
    return 0;
}

}  // namespace platform
