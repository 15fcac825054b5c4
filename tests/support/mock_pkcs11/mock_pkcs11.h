// Control of the mock PKCS#11 module, for the failures a real token cannot
// produce on demand. Tests reach these through dlsym on the same module
// file that the provider loads, so both see one instance.
#pragma once

#include "quelmpkcs11/extended_function_list.h"

#ifdef __cplusplus
extern "C" {
#endif

// Back to no slots, no sessions and no scripted results.
typedef void (*MockPkcs11_ResetFn)(void);
// Every later call of the named function returns rv.
typedef void (*MockPkcs11_FailFn)(const char* function, CK_RV rv);
// Adds a slot with this description (padded with blanks to 64 bytes).
typedef void (*MockPkcs11_AddSlotFn)(const char* description, CK_BBOOL tokenPresent);
// The login entry accepts the PIN whose SHA-256 digest this is; it keeps
// no copy of any PIN it is given.
typedef void (*MockPkcs11_SetPinDigestFn)(const unsigned char digest[32]);
// Sessions opened and not yet closed.
typedef long (*MockPkcs11_OpenSessionsFn)(void);

#ifdef __cplusplus
}
#endif
