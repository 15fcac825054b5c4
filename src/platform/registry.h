// Configuration under HKEY_LOCAL_MACHINE.
//
// On Windows this is the registry itself. On Linux it is a registry file in
// the .reg text format that `reg import` reads; its path comes from
// QUELMKSP_REGISTRY, by default /etc/velmora/quelmksp.reg. Both follow the
// semantics of RegGetValueW, RegOpenKeyW and RegQueryValueExW, so that the
// callers read the same way on both platforms.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "platform/wide_string.h"

namespace platform::registry {

// Value types, numbered as the registry numbers them.
inline constexpr uint32_t kTypeNone = 0;
inline constexpr uint32_t kTypeString = 1;
inline constexpr uint32_t kTypeExpandString = 2;
inline constexpr uint32_t kTypeBinary = 3;
inline constexpr uint32_t kTypeDword = 4;
inline constexpr uint32_t kTypeMultiString = 7;
inline constexpr uint32_t kTypeQword = 11;

// Type restrictions of GetValue (RRF_RT_*).
inline constexpr uint32_t kRestrictNone = 0x00000001;
inline constexpr uint32_t kRestrictString = 0x00000002;
inline constexpr uint32_t kRestrictExpandString = 0x00000004;
inline constexpr uint32_t kRestrictBinary = 0x00000008;
inline constexpr uint32_t kRestrictDword = 0x00000010;
inline constexpr uint32_t kRestrictMultiString = 0x00000020;
inline constexpr uint32_t kRestrictQword = 0x00000040;
inline constexpr uint32_t kRestrictAny = 0x0000FFFF;

// Results, as the registry functions return them.
inline constexpr long kSuccess = 0;
inline constexpr long kFileNotFound = 2;
inline constexpr long kInvalidParameter = 87;
inline constexpr long kMoreData = 234;
inline constexpr long kInvalidData = 13;
inline constexpr long kDatatypeMismatch = 1629;
inline constexpr long kUnsupportedType = 1630;

// RegGetValueW on HKEY_LOCAL_MACHINE\subKey. On entry *cbData is the size of
// data; on return it is the size of the value. A null data asks for the size.
long GetValue(const WideChar* subKey, const WideChar* valueName, uint32_t restrict, uint32_t* type,
              void* data, uint32_t* cbData);

// An open key: RegOpenKeyW, RegQueryValueExW and RegCloseKey.
class Key {
public:
    // Opens HKEY_LOCAL_MACHINE\subKey; *status receives the result.
    static std::optional<Key> Open(const WideChar* subKey, long* status = nullptr);

    Key(Key&& other) noexcept;
    Key& operator=(Key&&) = delete;
    Key(const Key&) = delete;
    ~Key();

    long QueryValue(const WideChar* valueName, uint32_t* type, void* data, uint32_t* cbData) const;

private:
    Key() = default;
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace platform::registry
