// Random key identifiers drawn from the token.
#pragma once

#include <cstddef>
#include <cstdint>

#include "token/pkcs11.h"

// Fills id with length random bytes from the token, none of them zero.
//
// A key is named after its CKA_ID up to the first zero byte, and an empty
// name matches every search; so an identifier with a zero byte would give
// its key a shortened name that could shadow other keys. The bytes are drawn
// again until none is zero, which keeps them uniformly random over the
// non-zero bytes. A token whose generator keeps failing that test is
// answered with CKR_FUNCTION_FAILED.
CK_RV GenerateNonZeroId(CK_FUNCTION_LIST& token, CK_SESSION_HANDLE session, uint8_t* id,
                        size_t length);
