// The client's view of the provider: the library loaded the way the key
// storage router loads it, and its function table.
#pragma once

#include <memory>
#include <string>

#include "platform/module.h"
#include "provider/ncrypt_provider.h"

class ProviderClient {
public:
    // The provider's file name on this platform, found beside the client.
    static constexpr const char* kDefaultLibrary = QUELMKSP_LIBRARY_NAME;

    // Loads the library and fetches its table under the provider's name.
    // Throws std::runtime_error with a message for the user on failure.
    // interactive: providers are opened without NCRYPT_SILENT_FLAG, so that
    // the provider may ask the user for the reader.
    explicit ProviderClient(const std::string& libraryPath, bool interactive = false);

    NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table() const { return *table_; }
    const std::string& libraryPath() const { return libraryPath_; }
    DWORD openFlags() const { return openFlags_; }

private:
    std::string libraryPath_;
    std::unique_ptr<platform::Module> module_;
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table_ = nullptr;
    DWORD openFlags_;
};
