#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>

#include <p11-kit/pkcs11.h>

#include "kept_output.h"
#include "object_search.h"

namespace quelm {

// What the middleware adds to one backend session. Its lock serialises the calls that use the
// session's search or kept output.
struct SessionState {
    explicit SessionState(CK_SLOT_ID slot_id) : slot(slot_id) {}

    std::mutex lock;
    const CK_SLOT_ID slot;
    ObjectSearch search;
    KeptOutput kept;
    // A CKM_RSA_PKCS signature that C_SignInit started and no call has touched since.
    struct Pkcs1Signing {
        CK_OBJECT_HANDLE key;
        CK_ULONG modulus_length;  // 0 when unknown
    };
    std::optional<Pkcs1Signing> pkcs1_signing;
};

class SessionTable {
public:
    void add(CK_SESSION_HANDLE session, CK_SLOT_ID slot);
    std::shared_ptr<SessionState> find(CK_SESSION_HANDLE session) const;
    // Also picks up a session that the backend knows but that was opened past the middleware;
    // `rv` carries the backend's answer for a session it does not know either.
    std::shared_ptr<SessionState> get(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                                      CK_RV& rv);
    void remove(CK_SESSION_HANDLE session);
    void remove_slot(CK_SLOT_ID slot);

private:
    mutable std::mutex lock_;
    std::unordered_map<CK_SESSION_HANDLE, std::shared_ptr<SessionState>> sessions_;
};

}  // namespace quelm
