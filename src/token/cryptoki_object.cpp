#include "token/cryptoki_object.h"

#include <new>

CryptokiObject::CryptokiObject() : pLog(new (std::nothrow) DebugClass(false)) {}

CryptokiObject::~CryptokiObject() = default;

CK_RV CryptokiObject::Destroy() {
    if (!Bound() || hObject == 0) return CKR_ARGUMENTS_BAD;
    CK_RV rv = Token().C_DestroyObject(hSession, hObject);
    hObject = 0;
    return rv;
}

bool IsSupportedModulusBits(uint32_t bits) {
    return bits == 512 || bits == 1024 || bits == 2048 || bits == 4096;
}
