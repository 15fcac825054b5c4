#pragma once

#include <optional>

#include <p11-kit/pkcs11.h>

namespace quelm {

// Private keys made through the middleware are visible before login, as on a smart card, so the
// middleware itself keeps their use behind the user's login.

std::optional<CK_OBJECT_CLASS> object_class(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                                            CK_OBJECT_HANDLE object);

// The class and, for a key with a modulus, the modulus length, read in one call. The class is
// what object_class() reads; the length is 0 when it could not be read.
struct KeyFacts {
    std::optional<CK_OBJECT_CLASS> object_class;
    CK_ULONG modulus_length = 0;
};
KeyFacts key_facts(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object);

// PKCS#11 login state belongs to the token: one session's login covers all of its sessions.
bool user_logged_in(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session);

// CKR_USER_NOT_LOGGED_IN for a private key without a user login, otherwise CKR_OK. An object
// whose class cannot be read is left for the backend to refuse.
CK_RV require_login_for_private_key(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                                    CK_OBJECT_HANDLE key);
CK_RV require_login_for_private_key(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                                    std::optional<CK_OBJECT_CLASS> key_class);

// The attributes that a card never reveals before the PIN is given.
bool is_private_component(CK_ATTRIBUTE_TYPE type);

}  // namespace quelm
