// How RegGetValueW and RegQueryValueExW hand a stored value to their caller:
// the type restriction, the size query, the too-small buffer and the
// terminators that RegGetValueW guarantees for strings. Kept apart from the
// storage so that any backing store reads exactly like the registry.
#pragma once

#include <cstdint>
#include <vector>

namespace platform::registry {

bool ValidGetValueArguments(uint32_t restrict, const void* data, const uint32_t* cbData);

// RegQueryValueExW: the stored bytes as they are.
long CopyValue(uint32_t storedType, const std::vector<uint8_t>& stored, uint32_t* type, void* data,
               uint32_t* cbData);

// RegGetValueW: the type must pass the restriction; strings come back
// terminated.
long CopyRestrictedValue(uint32_t storedType, std::vector<uint8_t> stored, uint32_t restrict,
                         uint32_t* type, void* data, uint32_t* cbData);

}  // namespace platform::registry
