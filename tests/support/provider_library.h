// The shipped provider library, loaded the way the key storage router loads
// it. Each instance is a fresh copy in its own link namespace, so that its
// load-time objects (the logs above all) see the environment of the moment.
#pragma once

#include <dlfcn.h>

#include <cstdlib>
#include <stdexcept>
#include <string>

#include "provider/ncrypt_provider.h"

class ProviderLibrary {
public:
    // tokenModule: the PKCS#11 module the provider binds to at load.
    explicit ProviderLibrary(const std::string& tokenModule) {
        setenv("QUELMKSP_PKCS11_MODULE", tokenModule.c_str(), 1);
        handle_ = dlmopen(LM_ID_NEWLM, QUELMKSP_PROVIDER_PATH, RTLD_NOW | RTLD_LOCAL);
        if (!handle_) throw std::runtime_error(dlerror());
    }
    // Kept loaded: the provider is never unloaded by its host either.
    ProviderLibrary(const ProviderLibrary&) = delete;
    ProviderLibrary& operator=(const ProviderLibrary&) = delete;

    void* Symbol(const char* name) const { return dlsym(handle_, name); }

    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* Table() const {
        auto entry = reinterpret_cast<GetKeyStorageInterfaceFn>(Symbol("GetKeyStorageInterface"));
        NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
        if (!entry || entry(u"Velmora KSP v4.5", &table, 0) != 0)
            throw std::runtime_error("GetKeyStorageInterface failed");
        return table;
    }

private:
    void* handle_;
};
