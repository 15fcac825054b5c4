#include "platform/module.h"

#include <dlfcn.h>

namespace platform {

std::unique_ptr<Module> Module::Load(const std::string& fileName, std::string* error) {
    void* handle = dlopen(fileName.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle && fileName.find('/') == std::string::npos)
        handle = dlopen((OwnFolder() + fileName).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        if (error) *error = dlerror();
        return nullptr;
    }
    return std::unique_ptr<Module>(new Module(handle));
}

void* Module::Symbol(const char* name) const {
    return dlsym(handle_, name);
}

std::string OwnFolder() {
    Dl_info info{};
    if (!dladdr(reinterpret_cast<void*>(&OwnFolder), &info) || !info.dli_fname) return {};
    std::string path = info.dli_fname;
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

std::string SharedLibraryFileName(const std::string& name) {
    return "lib" + name + ".so";
}

}  // namespace platform
