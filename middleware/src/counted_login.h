#pragma once

#include <p11-kit/pkcs11.h>

#include "module.h"

namespace quelm {

enum class LoginEntry { kStandard, kExtended };

// A user login under the persistent retry counter. Both login entries share it; they differ only
// in how a wrong PIN is answered: C_Login with CKR_PIN_INCORRECT, the extended entry with the
// number of tries left.
CK_RV counted_login(Module& module, CK_SESSION_HANDLE session, CK_USER_TYPE user,
                    CK_UTF8CHAR_PTR pin, CK_ULONG pin_len, LoginEntry entry);

// The extended entry's login. *tries_left is set when the result is the
// number of tries left after a wrong PIN.
CK_RV extended_login(Module& module, CK_SESSION_HANDLE session, CK_USER_TYPE user,
                     CK_UTF8CHAR_PTR pin, CK_ULONG pin_len, bool* tries_left);

// The extended entry answers a wrong PIN with the tries left, 1 to 14, which
// share their numbers with ordinary errors (CKR_FUNCTION_FAILED is 6). Any
// other failure in that range becomes CKR_DEVICE_ERROR, so that a caller never
// takes, say, an unwritable counter for a wrong PIN.
CK_RV extended_login_result(CK_RV rv, bool tries_left);

// C_SetPIN with the user's old PIN is a PIN try like a login, and counts as one.
CK_RV counted_set_pin(Module& module, CK_SESSION_HANDLE session, CK_UTF8CHAR_PTR old_pin,
                      CK_ULONG old_len, CK_UTF8CHAR_PTR new_pin, CK_ULONG new_len);

// Replaces the backend's PIN state flags by the ones the counter implies.
void apply_counter_flags(const Module& module, CK_TOKEN_INFO& info);

// Forgets the wrong tries of the token in the slot, after its PIN was set anew.
CK_RV reset_counter(const Module& module, CK_SLOT_ID slot);

}  // namespace quelm
