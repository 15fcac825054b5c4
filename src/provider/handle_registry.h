// Every handle the provider has handed out and not yet taken back.
//
// Callers are other people's code: a handle may have been freed already,
// forged, or belong to another provider. Such a handle must be refused
// without reading the memory it points to, so each check asks here first.
#pragma once

#include <cstdint>
#include <shared_mutex>
#include <unordered_map>
#include <vector>

enum class HandleKind : uint8_t { kProvider, kKey, kBuffer, kEnumState };

class HandleRegistry {
public:
    // owner: the provider a key belongs to; null for the other kinds.
    void Add(const void* handle, HandleKind kind, const void* owner = nullptr);
    // Takes the handle back; false when it was not live as that kind.
    bool Remove(const void* handle, HandleKind kind);
    // Takes back a caller buffer of either kind; false when unknown.
    bool RemoveBuffer(const void* handle);
    // Whether the handle is live as that kind (and, for a key, owned by
    // owner).
    bool Contains(const void* handle, HandleKind kind, const void* owner = nullptr) const;
    // Takes back every key of the provider and returns them, for the
    // provider's release to free.
    std::vector<void*> RemoveKeysOf(const void* provider);

private:
    struct Entry {
        HandleKind kind;
        const void* owner;
    };
    mutable std::shared_mutex lock_;
    std::unordered_map<const void*, Entry> live_;
};

extern HandleRegistry* g_pHandles;
