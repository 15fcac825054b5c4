// The platform's RSA algorithm provider, which key contexts carry a handle
// to. No operation of the provider uses it for cryptography.
#pragma once

#include <cstdint>

namespace platform {

using AlgorithmHandle = void*;

// Opens the RSA algorithm provider. Returns an NTSTATUS: 0 with the handle
// in *handle, or the failure.
int32_t OpenRsaAlgorithmProvider(AlgorithmHandle* handle);

}  // namespace platform
