// Loading a shared library by name and looking up its exports.
#pragma once

#include <memory>
#include <string>

#include "platform/wide_string.h"

namespace platform {

class Module {
public:
    // Loads a library by file name through the platform's default search
    // order, then from the folder of the library that contains this code.
    // Returns nullptr when neither finds it; *error then says why.
    static std::unique_ptr<Module> Load(const std::string& fileName, std::string* error = nullptr);

    // A module is never unloaded: the provider keeps what it loads for the
    // life of the process, and handing pointers out of an unloaded library
    // would be fatal.
    ~Module() = default;
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    void* Symbol(const char* name) const;

    template <typename Fn>
    Fn Function(const char* name) const {
        return reinterpret_cast<Fn>(Symbol(name));
    }

private:
    explicit Module(void* handle) : handle_(handle) {}
    void* handle_;
};

// The folder (with a trailing separator) of the library or executable that
// holds this code.
std::string OwnFolder();

// The file name of a shared library on this platform: "name.dll" on Windows,
// "libname.so" on Linux.
std::string SharedLibraryFileName(const std::string& name);

}  // namespace platform
