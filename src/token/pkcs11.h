// The PKCS#11 definitions as the token module sees them, with the extended
// function list that carries the login entry beyond the standard ones.
#pragma once

#include "quelmpkcs11/extended_function_list.h"
