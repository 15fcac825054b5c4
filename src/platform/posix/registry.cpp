#include "platform/registry.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/posix/reg_file.h"
#include "platform/posix/reg_file_cache.h"
#include "platform/posix/registry_rules.h"

namespace platform::registry {
namespace {

// Read on every call, so that a test or a deployment can point a running
// process at another file.
std::string RegistryFilePath() {
    const char* path = std::getenv("QUELMKSP_REGISTRY");
    return (path && *path) ? path : "/etc/velmora/quelmksp.reg";
}

// Every logger and every login reads the registry; the file is parsed again
// only when it changes.
regfile::FileCache& Cache() {
    static regfile::FileCache* const cache = new regfile::FileCache();
    return *cache;
}

regfile::Lookup Find(const WideChar* subKey, const WideChar* valueName) {
    return Cache().Find(RegistryFilePath(), ViewOf(subKey), ViewOf(valueName));
}

long StatusOf(const regfile::Lookup& lookup) {
    switch (lookup.outcome) {
        case regfile::Outcome::kFound:
            return kSuccess;
        case regfile::Outcome::kUnreadable:
            return kInvalidData;
        default:
            return kFileNotFound;
    }
}

}  // namespace

long GetValue(const WideChar* subKey, const WideChar* valueName, uint32_t restrict, uint32_t* type,
              void* data, uint32_t* cbData) {
    if (!ValidGetValueArguments(restrict, data, cbData)) return kInvalidParameter;
    regfile::Lookup lookup = Find(subKey, valueName);
    long status = StatusOf(lookup);
    if (status != kSuccess) return status;
    return CopyRestrictedValue(lookup.value.type, lookup.value.data, restrict, type, data, cbData);
}

struct Key::State {
    WideString subKey;
};

std::optional<Key> Key::Open(const WideChar* subKey, long* status) {
    bool exists = Find(subKey, WIDE("")).outcome != regfile::Outcome::kKeyMissing;
    if (status) *status = exists ? kSuccess : kFileNotFound;
    if (!exists) return std::nullopt;
    Key key;
    key.state_ = std::make_unique<State>(State{WideString(ViewOf(subKey))});
    return key;
}

Key::Key(Key&& other) noexcept = default;
Key::~Key() = default;

long Key::QueryValue(const WideChar* valueName, uint32_t* type, void* data,
                     uint32_t* cbData) const {
    if (data && !cbData) return kInvalidParameter;
    regfile::Lookup lookup = Find(state_->subKey.c_str(), valueName);
    long status = StatusOf(lookup);
    if (status != kSuccess) return status;
    return CopyValue(lookup.value.type, lookup.value.data, type, data, cbData);
}

}  // namespace platform::registry
