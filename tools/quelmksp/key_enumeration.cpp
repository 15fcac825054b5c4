#include "key_enumeration.h"

#include "status_messages.h"

namespace {

// The enumeration's records and state, each released through FreeBuffer
// whatever happens between two steps.
class Enumeration {
public:
    explicit Enumeration(const ProviderSession& session) : session_(session) {}
    ~Enumeration() {
        if (state_) session_.table().FreeBuffer(state_);
    }
    Enumeration(const Enumeration&) = delete;
    Enumeration& operator=(const Enumeration&) = delete;

    // The next name, or false at the end.
    bool Next(platform::WideString* name) {
        NCryptKeyName* record = nullptr;
        SECURITY_STATUS status =
            session_.table().EnumKeys(session_.provider(), nullptr, &record, &state_, 0);
        if (status == NTE_NO_MORE_ITEMS) return false;
        if (status != ERROR_SUCCESS) ThrowStatus(status, "the keys could not be listed");
        *name = record ? platform::ViewOf(record->pszName) : platform::WideView();
        if (record) session_.table().FreeBuffer(record);
        return true;
    }

private:
    const ProviderSession& session_;
    PVOID state_ = nullptr;
};

}  // namespace

std::vector<platform::WideString> ListKeyNames(const ProviderSession& session) {
    std::vector<platform::WideString> names;
    Enumeration keys(session);
    platform::WideString name;
    while (keys.Next(&name)) names.push_back(name);
    return names;
}

std::optional<platform::WideString> ListedNameOf(const ProviderSession& session,
                                                 const RsaPublicKey& wanted) {
    for (const platform::WideString& name : ListKeyNames(session)) {
        if (name.empty()) continue;
        OpenedKey candidate(session);
        RsaPublicKey publicKey;
        if (candidate.Open(name) == ERROR_SUCCESS &&
            ExportPublicKey(candidate.ref(), &publicKey) == ERROR_SUCCESS && publicKey == wanted)
            return name;
    }
    return std::nullopt;
}
