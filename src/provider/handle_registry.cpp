#include "provider/handle_registry.h"

#include <mutex>

void HandleRegistry::Add(const void* handle, HandleKind kind, const void* owner) {
    std::unique_lock<std::shared_mutex> hold(lock_);
    live_[handle] = {kind, owner};
}

bool HandleRegistry::Remove(const void* handle, HandleKind kind) {
    std::unique_lock<std::shared_mutex> hold(lock_);
    auto found = live_.find(handle);
    if (found == live_.end() || found->second.kind != kind) return false;
    live_.erase(found);
    return true;
}

bool HandleRegistry::RemoveBuffer(const void* handle) {
    std::unique_lock<std::shared_mutex> hold(lock_);
    auto found = live_.find(handle);
    if (found == live_.end()) return false;
    HandleKind kind = found->second.kind;
    if (kind != HandleKind::kBuffer && kind != HandleKind::kEnumState) return false;
    live_.erase(found);
    return true;
}

bool HandleRegistry::Contains(const void* handle, HandleKind kind, const void* owner) const {
    std::shared_lock<std::shared_mutex> hold(lock_);
    auto found = live_.find(handle);
    return found != live_.end() && found->second.kind == kind &&
           (kind != HandleKind::kKey || found->second.owner == owner);
}

std::vector<void*> HandleRegistry::RemoveKeysOf(const void* provider) {
    std::unique_lock<std::shared_mutex> hold(lock_);
    std::vector<void*> keys;
    for (auto entry = live_.begin(); entry != live_.end();) {
        if (entry->second.kind == HandleKind::kKey && entry->second.owner == provider) {
            keys.push_back(const_cast<void*>(entry->first));
            entry = live_.erase(entry);
        } else {
            ++entry;
        }
    }
    return keys;
}
