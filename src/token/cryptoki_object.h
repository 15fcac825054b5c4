// The token object model: short-lived C++ objects that stand for PKCS#11
// objects on the token for the length of one call. Each carries the session
// it works in, the binding it calls through, its object handle and the
// attribute values it writes when it creates its object. Destroying an
// instance never destroys the token object behind it.
#pragma once

#include <memory>
#include <string>

#include "diag/debug_class.h"
#include "token/cryptoki_library.h"

class CryptokiObject {
public:
    CryptokiObject();
    virtual ~CryptokiObject();
    CryptokiObject(const CryptokiObject&) = delete;
    CryptokiObject& operator=(const CryptokiObject&) = delete;

    // Destroys the object on the token.
    virtual CK_RV Destroy();
    virtual CK_OBJECT_CLASS GetClass() const { return objectClass; }
    virtual const std::string& GetName() const { return name; }
    virtual bool IsModifiable() const { return bModifiable == 1; }
    virtual bool IsPrivate() const { return bPrivate == 1; }
    virtual bool IsToken() const { return bToken == 1; }
    virtual bool IsExtractable() const { return bExtractable == 1; }
    virtual bool IsSensitive() const { return bSensitive == 1; }
    virtual CK_OBJECT_HANDLE GetHandle() const { return hObject; }
    virtual CK_SESSION_HANDLE GetSession() const { return hSession; }
    virtual CryptokiLibrary* GetCryptoki() const { return pCryptoki; }

    std::string name;
    CK_BBOOL bModifiable = 0;
    CK_BBOOL bPrivate = 0;
    CK_BBOOL bToken = 0;
    CK_BBOOL bExtractable = 0;
    CK_BBOOL bSensitive = 0;
    CK_OBJECT_CLASS objectClass = 0;
    CK_OBJECT_HANDLE hObject = 0;
    CK_SESSION_HANDLE hSession = 0;
    CryptokiLibrary* pCryptoki = nullptr;
    std::unique_ptr<DebugClass> pLog;

protected:
    // True when the object can work on the token: it has a session and a
    // binding.
    bool Bound() const { return hSession != 0 && pCryptoki != nullptr; }
    CK_FUNCTION_LIST& Token() const { return *pCryptoki->functions(); }
};

// What a key may be used for, as key creation derives it from the key's
// legacy algorithm identifier.
enum KeyUsageCode : int { kKeyExchange = 0, kSignature = 1, kExchangeAndSignature = 2 };

inline bool UsageEncrypts(int usage) {
    return usage == kKeyExchange || usage == kExchangeAndSignature;
}
inline bool UsageSigns(int usage) {
    return usage == kSignature || usage == kExchangeAndSignature;
}

// Key lengths the token accepts.
bool IsSupportedModulusBits(uint32_t bits);
