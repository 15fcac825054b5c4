// The binding to the token's PKCS#11 module, "quelmpkcs11".
//
// One instance, g_pCryptoki, is made when the library is loaded. It loads
// the module, fetches its function list and initialises it; the module is
// never finalised or unloaded, so every provider shares the one
// initialisation.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>

#include "diag/debug_class.h"
#include "platform/module.h"
#include "token/pkcs11.h"

// A construction failure, carrying the text meant for the user.
class BindingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class CryptokiLibrary {
public:
    // The file it loads: "quelmpkcs11.dll" or "libquelmpkcs11.so", unless
    // QUELMKSP_PKCS11_MODULE names another module file.
    static std::string ModuleFileName();

    // Throws BindingError when the module cannot be loaded, bound or
    // initialised.
    CryptokiLibrary();
    CryptokiLibrary(const CryptokiLibrary&) = delete;
    CryptokiLibrary& operator=(const CryptokiLibrary&) = delete;

    bool LoadFunctionList();

    // Every PKCS#11 call of the provider goes through this list.
    CK_FUNCTION_LIST* functions() const { return &pFunctionList->standard; }
    CK_RV ExtendedLogin(CK_SESSION_HANDLE session, CK_USER_TYPE userType, CK_UTF8CHAR_PTR pin,
                        CK_ULONG pinLength) const;

    std::unique_ptr<platform::Module> hModule;
    CK_RV rvGetFunctionList = CKR_GENERAL_ERROR;
    CK_C_GetFunctionList pfnGetFunctionList = nullptr;
    QUELM_FUNCTION_LIST* pFunctionList = nullptr;
    std::unique_ptr<DebugClass> moduleLog;
};

extern CryptokiLibrary* g_pCryptoki;

// Why the binding could not be made at load, or empty when it was.
extern std::string g_bindingError;

// Makes the binding for the load-time initialiser; a failure is recorded in
// g_bindingError instead of escaping into the host's library load.
CryptokiLibrary* CreateCryptokiLibrary();

// The status that callers hand on for a PKCS#11 return value.
int32_t MapCkrToStatus(CK_RV rv);
