#pragma once

#include <memory>
#include <string>

#include <p11-kit/pkcs11.h>

namespace quelm {

// The wrapped PKCS#11 module, loaded by path. The library stays mapped for the life of this
// object; its function list is valid exactly that long.
class BackendModule {
public:
    // Returns null and fills `error` when the library or its function list cannot be had.
    static std::unique_ptr<BackendModule> load(const std::string& path, std::string& error);

    ~BackendModule();
    BackendModule(const BackendModule&) = delete;
    BackendModule& operator=(const BackendModule&) = delete;

    const std::string& path() const { return path_; }
    CK_FUNCTION_LIST& functions() const { return *functions_; }

private:
    BackendModule(std::string path, void* handle, CK_FUNCTION_LIST* functions)
        : path_(std::move(path)), handle_(handle), functions_(functions) {}

    std::string path_;
    void* handle_;
    CK_FUNCTION_LIST* functions_;
};

}  // namespace quelm
