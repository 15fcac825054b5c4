// The library's own entry point. It does nothing of the provider's: the
// process-wide objects are made by global initialisers when the library is
// loaded.
#ifdef _WIN32
#include <windows.h>

BOOL WINAPI DllMain(HINSTANCE, DWORD, LPVOID) {
    return TRUE;
}
#endif
