#include "token/cryptoki_library.h"

#include <cstdlib>

namespace {

constexpr const char* kLoadFailed = "No se pudo cargar la biblioteca PKCS#11";
constexpr const char* kListFailed = "No se pudo recuperar la lista de funciones de middleware";

}  // namespace

std::string CryptokiLibrary::ModuleFileName() {
    const char* chosen = std::getenv("QUELMKSP_PKCS11_MODULE");
    return (chosen && *chosen) ? chosen : platform::SharedLibraryFileName("quelmpkcs11");
}

CryptokiLibrary::CryptokiLibrary() : moduleLog(std::make_unique<DebugClass>(false)) {
    hModule = platform::Module::Load(ModuleFileName());
    if (!hModule) {
        moduleLog->WriteLine("Failed to load PKCS#11 Library.\n");
        throw BindingError(kLoadFailed);
    }
    moduleLog->WriteLine("PKCS#11 library loaded successfully");
    if (!LoadFunctionList()) {
        moduleLog->WriteLine("Failed to retrieve middleware function list.");
        throw BindingError(kListFailed);
    }
    moduleLog->WriteLine("PKCS#11 library function list retrieved");
    CK_RV rv = functions()->C_Initialize(nullptr);
    if (rv != CKR_OK && rv != CKR_CRYPTOKI_ALREADY_INITIALIZED) {
        moduleLog->WriteLine("Failed to intialize PKCS middleware.");
        throw BindingError(kListFailed);
    }
    moduleLog->WriteLine("PKCS#11 library initialized successfully");
}

bool CryptokiLibrary::LoadFunctionList() {
    pfnGetFunctionList = hModule->Function<CK_C_GetFunctionList>("C_GetFunctionList");
    if (!pfnGetFunctionList) {
        moduleLog->WriteLine("Failed to get function list");
        return false;
    }
    moduleLog->WriteLine("Get Function List success");
    CK_FUNCTION_LIST_PTR list = nullptr;
    rvGetFunctionList = pfnGetFunctionList(&list);
    if (rvGetFunctionList != CKR_OK || !list) {
        moduleLog->WriteLine("Failed to load function list");
        return false;
    }
    // The module hands out its extended list through the standard call.
    pFunctionList = reinterpret_cast<QUELM_FUNCTION_LIST*>(list);
    moduleLog->WriteLine("Load Function List success");
    return true;
}

CK_RV CryptokiLibrary::ExtendedLogin(CK_SESSION_HANDLE session, CK_USER_TYPE userType,
                                     CK_UTF8CHAR_PTR pin, CK_ULONG pinLength) const {
    if (!pFunctionList->ExtendedLogin) return CKR_FUNCTION_NOT_SUPPORTED;
    return pFunctionList->ExtendedLogin(session, userType, pin, pinLength);
}

CryptokiLibrary* CreateCryptokiLibrary() {
    try {
        return new CryptokiLibrary();
    } catch (const std::exception& error) {
        g_bindingError = error.what();
        return nullptr;
    }
}
