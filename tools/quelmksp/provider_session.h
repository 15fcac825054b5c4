// A provider opened on the token and the key a command works with, both
// freed on every path out of the command.
#pragma once

#include <string>

#include "key_access.h"
#include "platform/wide_string.h"
#include "provider_client.h"

class ProviderSession {
public:
    // Opens the provider silently, as a service would, unless the client is
    // interactive. Throws ClientError.
    explicit ProviderSession(const ProviderClient& client);
    ~ProviderSession();
    ProviderSession(const ProviderSession&) = delete;
    ProviderSession& operator=(const ProviderSession&) = delete;

    // Opens the key named by its name or its hexadecimal form, given as it
    // was typed. Throws ClientError ("NTE_BAD_KEYSET: no key named ...").
    NCRYPT_KEY_HANDLE OpenKey(const std::string& name);

    // CreatePersistedKey of an RSA key; on success the new, unfinalized key
    // becomes the session's key.
    SECURITY_STATUS CreateKey(platform::WideView name, DWORD legacyKeySpec, DWORD flags);

    // ImportKey of a BCRYPT_RSAKEY_BLOB, named by name when it is not empty,
    // wrapped for importKey when that is not 0; on success the imported key
    // becomes the session's key.
    SECURITY_STATUS ImportKey(NCRYPT_KEY_HANDLE importKey, LPCWSTR blobType,
                              platform::WideView name, SecretBytes& blob, DWORD flags);

    NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table() const { return table_; }
    NCRYPT_PROV_HANDLE provider() const { return provider_; }
    NCRYPT_KEY_HANDLE key() const { return key_; }
    KeyRef keyRef() const { return KeyRef{table_, provider_, key_}; }

private:
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table_;
    NCRYPT_PROV_HANDLE provider_ = 0;
    NCRYPT_KEY_HANDLE key_ = 0;
};

// A further key opened in a session, for commands that look at several;
// freed before the session's provider.
class OpenedKey {
public:
    explicit OpenedKey(const ProviderSession& session) : session_(session) {}
    ~OpenedKey();
    OpenedKey(const OpenedKey&) = delete;
    OpenedKey& operator=(const OpenedKey&) = delete;

    // Opens the key under the name EnumKeys listed.
    SECURITY_STATUS Open(platform::WideView name);
    KeyRef ref() const { return KeyRef{session_.table(), session_.provider(), key_}; }

private:
    const ProviderSession& session_;
    NCRYPT_KEY_HANDLE key_ = 0;
};
