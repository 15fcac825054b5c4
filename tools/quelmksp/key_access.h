// A key as the commands reach it through the function table: its
// properties and its public half.
#pragma once

#include "provider/ncrypt_provider.h"
#include "rsa_public_key.h"
#include "secret_bytes.h"

struct KeyRef {
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table;
    NCRYPT_PROV_HANDLE provider;
    NCRYPT_KEY_HANDLE key;
};

// The whole value of a key property (length query, then the value), or the
// status of the call that failed.
SECURITY_STATUS ReadKeyProperty(const KeyRef& key, LPCWSTR property, SecretBytes* value);
SECURITY_STATUS ReadKeyDword(const KeyRef& key, LPCWSTR property, DWORD* value);

// The RSAPUBLICBLOB export, or the status of the call that failed;
// NTE_BAD_DATA when the provider's blob cannot be read.
SECURITY_STATUS ExportRsaPublicBlob(const KeyRef& key, SecretBytes* blob);
SECURITY_STATUS ExportPublicKey(const KeyRef& key, RsaPublicKey* publicKey);

// The same, throwing ClientError with the status for the user.
RsaPublicKey PublicKeyOf(const KeyRef& key);
