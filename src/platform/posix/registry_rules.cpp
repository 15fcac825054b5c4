#include "platform/posix/registry_rules.h"

#include <cstring>

#include "platform/registry.h"

namespace platform::registry {
namespace {

uint32_t RestrictionBitOf(uint32_t type) {
    switch (type) {
        case kTypeNone:
            return kRestrictNone;
        case kTypeString:
            return kRestrictString;
        case kTypeExpandString:
            return kRestrictExpandString;
        case kTypeBinary:
            return kRestrictBinary;
        case kTypeDword:
            return kRestrictDword;
        case kTypeMultiString:
            return kRestrictMultiString;
        case kTypeQword:
            return kRestrictQword;
        default:
            return 0;
    }
}

bool Passes(uint32_t type, uint32_t restrict) {
    if ((restrict & kRestrictAny) == kRestrictAny) return true;
    return (RestrictionBitOf(type)& restrict) != 0;
}

// Appends UTF-16 NULs until the data ends with `units` of them.
void Terminate(std::vector<uint8_t>& data, size_t units) {
    if (data.size() % 2) data.push_back(0);
    size_t have = 0;
    while (have < units && data.size() >= 2 * (have + 1) && data[data.size() - 2 * have - 1] == 0 &&
           data[data.size() - 2 * have - 2] == 0)
        ++have;
    data.insert(data.end(), 2 * (units - have), 0);
}

}  // namespace

bool ValidGetValueArguments(uint32_t restrict, const void* data, const uint32_t* cbData) {
    if ((restrict & kRestrictAny) == 0) return false;
    return !(data && !cbData);
}

long CopyValue(uint32_t storedType, const std::vector<uint8_t>& stored, uint32_t* type, void* data,
               uint32_t* cbData) {
    if (type) *type = storedType;
    uint32_t needed = static_cast<uint32_t>(stored.size());
    if (!data) {
        if (cbData) *cbData = needed;
        return kSuccess;
    }
    if (*cbData < needed) {
        *cbData = needed;
        return kMoreData;
    }
    if (needed) std::memcpy(data, stored.data(), needed);
    *cbData = needed;
    return kSuccess;
}

long CopyRestrictedValue(uint32_t storedType, std::vector<uint8_t> stored, uint32_t restrict,
                         uint32_t* type, void* data, uint32_t* cbData) {
    if (!Passes(storedType, restrict)) return kUnsupportedType;
    if (storedType == kTypeDword && (restrict & kRestrictAny) != kRestrictAny && stored.size() != 4)
        return kDatatypeMismatch;
    if (storedType == kTypeString || storedType == kTypeExpandString) Terminate(stored, 1);
    if (storedType == kTypeMultiString) Terminate(stored, stored.size() <= 2 ? 1 : 2);
    return CopyValue(storedType, stored, type, data, cbData);
}

}  // namespace platform::registry
