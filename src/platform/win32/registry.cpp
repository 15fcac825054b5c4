#include "platform/registry.h"

#include <windows.h>

namespace platform::registry {

long GetValue(const WideChar* subKey, const WideChar* valueName, uint32_t restrict, uint32_t* type,
              void* data, uint32_t* cbData) {
    DWORD storedType = 0;
    DWORD size = cbData ? *cbData : 0;
    LSTATUS status = RegGetValueW(HKEY_LOCAL_MACHINE, subKey, valueName, restrict, &storedType,
                                  data, cbData ? &size : nullptr);
    if (type) *type = storedType;
    if (cbData) *cbData = size;
    return status;
}

struct Key::State {
    HKEY handle = nullptr;
};

std::optional<Key> Key::Open(const WideChar* subKey, long* status) {
    HKEY handle = nullptr;
    LSTATUS result = RegOpenKeyW(HKEY_LOCAL_MACHINE, subKey, &handle);
    if (status) *status = result;
    if (result != ERROR_SUCCESS) return std::nullopt;
    Key key;
    key.state_ = std::make_unique<State>(State{handle});
    return key;
}

Key::Key(Key&& other) noexcept = default;

Key::~Key() {
    if (state_ && state_->handle) RegCloseKey(state_->handle);
}

long Key::QueryValue(const WideChar* valueName, uint32_t* type, void* data,
                     uint32_t* cbData) const {
    DWORD storedType = 0;
    DWORD size = cbData ? *cbData : 0;
    LSTATUS status = RegQueryValueExW(state_->handle, valueName, nullptr, &storedType,
                                      static_cast<BYTE*>(data), cbData ? &size : nullptr);
    if (type) *type = storedType;
    if (cbData) *cbData = size;
    return status;
}

}  // namespace platform::registry
