#include "counted_login.h"

#include <cstdio>
#include <functional>

#include "token_identity.h"

namespace quelm {
namespace {

constexpr CK_FLAGS kPinStateFlags =
    CKF_USER_PIN_COUNT_LOW | CKF_USER_PIN_FINAL_TRY | CKF_USER_PIN_LOCKED;

// Without a working counter every wrong PIN would be free, so a login then fails instead.
CK_RV report(const StateError& error) {
    std::fprintf(stderr, "quelmpkcs11: PIN retry counter unavailable: %s\n", error.what());
    return CKR_FUNCTION_FAILED;
}

}  // namespace

namespace {

CK_RV count_pin_try(Module& module, CK_SESSION_HANDLE session, LoginEntry entry,
                    const std::function<CK_RV()>& try_pin, bool* tries_left = nullptr) {
    CK_FUNCTION_LIST& backend = module.backend;
    CK_SESSION_INFO session_info{};
    if (const CK_RV rv = backend.C_GetSessionInfo(session, &session_info); rv != CKR_OK) return rv;
    CK_TOKEN_INFO token{};
    if (const CK_RV rv = module.token_info(session_info.slotID, &token); rv != CKR_OK) {
        return rv;
    }
    const std::string key = token_key(token);
    const unsigned max_tries = module.settings.max_tries;
    try {
        // Held across the backend call, so that two processes cannot both spend the last try.
        auto counters = module.counters.begin();
        unsigned failures = counters.failures(key);
        if (failures >= max_tries) return CKR_PIN_LOCKED;

        const CK_RV rv = try_pin();
        if (rv == CKR_OK) {
            counters.set_failures(key, 0);
            counters.commit();
            return CKR_OK;
        }
        if (rv != CKR_PIN_INCORRECT) return rv;
        counters.set_failures(key, ++failures);
        counters.commit();
        const unsigned left = max_tries - failures;
        if (left == 0) return CKR_PIN_LOCKED;
        if (entry != LoginEntry::kExtended) return CKR_PIN_INCORRECT;
        if (tries_left) *tries_left = true;
        return CK_RV{left};
    } catch (const StateError& error) {
        return report(error);
    }
}

// A user login on a session that is already logged in as the user gets the backend's answer
// for it without a PIN try: nothing can be counted, so the counter file is not needed.
bool user_logged_in_already(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session, CK_USER_TYPE user,
                            CK_UTF8CHAR_PTR pin) {
    if (user != CKU_USER || !pin) return false;
    CK_SESSION_INFO session_info{};
    return backend.C_GetSessionInfo(session, &session_info) == CKR_OK &&
           (session_info.state == CKS_RO_USER_FUNCTIONS ||
            session_info.state == CKS_RW_USER_FUNCTIONS);
}

}  // namespace

CK_RV counted_login(Module& module, CK_SESSION_HANDLE session, CK_USER_TYPE user,
                    CK_UTF8CHAR_PTR pin, CK_ULONG pin_len, LoginEntry entry) {
    CK_FUNCTION_LIST& backend = module.backend;
    if (user != CKU_USER && user != CKU_CONTEXT_SPECIFIC) {
        return backend.C_Login(session, user, pin, pin_len);
    }
    if (user_logged_in_already(backend, session, user, pin)) return CKR_USER_ALREADY_LOGGED_IN;
    return count_pin_try(module, session, entry,
                         [&] { return backend.C_Login(session, user, pin, pin_len); });
}

CK_RV extended_login_result(CK_RV rv, bool tries_left) {
    constexpr CK_RV kHighestTriesLeft = 14;
    if (tries_left || rv < 1 || rv > kHighestTriesLeft) return rv;
    return CKR_DEVICE_ERROR;
}

CK_RV extended_login(Module& module, CK_SESSION_HANDLE session, CK_USER_TYPE user,
                     CK_UTF8CHAR_PTR pin, CK_ULONG pin_len, bool* tries_left) {
    CK_FUNCTION_LIST& backend = module.backend;
    if (user != CKU_USER && user != CKU_CONTEXT_SPECIFIC)
        return backend.C_Login(session, user, pin, pin_len);
    if (user_logged_in_already(backend, session, user, pin)) return CKR_USER_ALREADY_LOGGED_IN;
    return count_pin_try(
        module, session, LoginEntry::kExtended,
        [&] { return backend.C_Login(session, user, pin, pin_len); }, tries_left);
}

CK_RV counted_set_pin(Module& module, CK_SESSION_HANDLE session, CK_UTF8CHAR_PTR old_pin,
                      CK_ULONG old_len, CK_UTF8CHAR_PTR new_pin, CK_ULONG new_len) {
    CK_FUNCTION_LIST& backend = module.backend;
    CK_SESSION_INFO session_info{};
    if (const CK_RV rv = backend.C_GetSessionInfo(session, &session_info); rv != CKR_OK) return rv;
    if (session_info.state == CKS_RW_SO_FUNCTIONS) {
        return backend.C_SetPIN(session, old_pin, old_len, new_pin, new_len);
    }
    return count_pin_try(module, session, LoginEntry::kStandard, [&] {
        return backend.C_SetPIN(session, old_pin, old_len, new_pin, new_len);
    });
}

void apply_counter_flags(const Module& module, CK_TOKEN_INFO& info) {
    info.flags &= ~kPinStateFlags;
    if (!(info.flags & CKF_TOKEN_INITIALIZED)) return;
    unsigned failures = 0;
    try {
        const auto counters = module.counters.read_current();
        const auto found = counters.find(token_key(info));
        if (found != counters.end()) failures = found->second;
    } catch (const StateError& error) {
        std::fprintf(stderr, "quelmpkcs11: PIN retry counter unavailable: %s\n", error.what());
        return;
    }
    const unsigned max_tries = module.settings.max_tries;
    if (failures >= max_tries) {
        info.flags |= CKF_USER_PIN_LOCKED;
        return;
    }
    if (failures > 0) info.flags |= CKF_USER_PIN_COUNT_LOW;
    if (max_tries - failures == 1) info.flags |= CKF_USER_PIN_FINAL_TRY;
}

CK_RV reset_counter(const Module& module, CK_SLOT_ID slot) {
    CK_TOKEN_INFO token{};
    if (const CK_RV rv = module.token_info(slot, &token); rv != CKR_OK) return rv;
    try {
        auto counters = module.counters.begin();
        counters.set_failures(token_key(token), 0);
        counters.commit();
        return CKR_OK;
    } catch (const StateError& error) {
        return report(error);
    }
}

}  // namespace quelm
