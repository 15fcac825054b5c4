// A provider opened on the token and the key a command works with, both
// freed on every path out of the command.
#pragma once

#include <string>

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

    NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table() const { return table_; }
    NCRYPT_PROV_HANDLE provider() const { return provider_; }
    NCRYPT_KEY_HANDLE key() const { return key_; }

private:
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table_;
    NCRYPT_PROV_HANDLE provider_ = 0;
    NCRYPT_KEY_HANDLE key_ = 0;
};
