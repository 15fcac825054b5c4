// Reading a key's certificate from the token: the certificate object whose
// CKA_ID is the key's name.
#pragma once

#include <cstdint>

#include "platform/wide_string.h"
#include "token/cryptoki_library.h"
#include "token/key_components.h"

struct KeyCertificate {
    uint32_t cbCertificate = 0;
    // The DER bytes, wiped when replaced or released.
    KeyBytes pbCertificate;
    CryptokiLibrary* pCryptoki = nullptr;
    CK_SESSION_HANDLE hSession = 0;
};

// Fills the record with the certificate of the key of that name. A status:
// NTE_NOT_FOUND when the key has no certificate.
int32_t ReadKeyCertificate(KeyCertificate& record, const platform::WideChar* keyName);

// The status for a failed search or read of a certificate object.
int32_t MapFindCkrToStatus(CK_RV rv);
