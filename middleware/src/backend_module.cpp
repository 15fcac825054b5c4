#include "backend_module.h"

#include <dlfcn.h>

namespace quelm {

std::unique_ptr<BackendModule> BackendModule::load(const std::string& path, std::string& error) {
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* reason = dlerror();
        error = reason ? reason : "cannot be loaded";
        return nullptr;
    }
    auto get_list = reinterpret_cast<CK_C_GetFunctionList>(dlsym(handle, "C_GetFunctionList"));
    CK_FUNCTION_LIST* functions = nullptr;
    if (!get_list || get_list(&functions) != CKR_OK || !functions) {
        error = "it offers no usable C_GetFunctionList";
        dlclose(handle);
        return nullptr;
    }
    return std::unique_ptr<BackendModule>(new BackendModule(path, handle, functions));
}

BackendModule::~BackendModule() {
    dlclose(handle_);
}

}  // namespace quelm
