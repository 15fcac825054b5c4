// The library's own entry point. It does nothing of the provider's: the
// process-wide objects are made by global initialisers, which have run by
// the time it is called.
#ifdef _WIN32
#include <windows.h>

#include "token/cryptoki_library.h"

// A provider whose token module could not be bound is of no use to the
// router, so the load itself fails instead of the host finding out later.
BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH && !g_pCryptoki) return FALSE;
    return TRUE;
}
#endif
