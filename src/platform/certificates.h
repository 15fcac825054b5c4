// The crypt32 certificate functions: Windows' own, or on Linux libquelmcert,
// which has the same names, structures and semantics.
#pragma once

#ifdef _WIN32
// wincrypt.h needs the types of windows.h, so it comes after it.
#include <windows.h>

#include <wincrypt.h>
#else
#include "platform/posix/certificates/quelmcert.h"
#endif
