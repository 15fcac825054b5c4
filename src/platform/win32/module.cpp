#include "platform/module.h"

#include <windows.h>

#include "platform/text.h"

namespace platform {
namespace {

std::string LastErrorText() {
    return "Windows error " + std::to_string(GetLastError());
}

}  // namespace

std::unique_ptr<Module> Module::Load(const std::string& fileName, std::string* error) {
    WideString name = FromUtf8(fileName);
    HMODULE handle = LoadLibraryW(name.c_str());
    if (!handle && fileName.find_first_of("\\/") == std::string::npos)
        handle = LoadLibraryW(FromUtf8(OwnFolder() + fileName).c_str());
    if (!handle) {
        if (error) *error = LastErrorText();
        return nullptr;
    }
    return std::unique_ptr<Module>(new Module(handle));
}

void* Module::Symbol(const char* name) const {
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle_), name));
}

std::string OwnFolder() {
    HMODULE self = nullptr;
    if (!GetModuleHandleExW(
            GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
            reinterpret_cast<LPCWSTR>(&OwnFolder), &self))
        return {};
    wchar_t path[MAX_PATH];
    DWORD length = GetModuleFileNameW(self, path, MAX_PATH);
    if (length == 0 || length == MAX_PATH) return {};
    std::string text = ToUtf8(WideView(path, length));
    size_t slash = text.find_last_of("\\/");
    return slash == std::string::npos ? std::string() : text.substr(0, slash + 1);
}

std::string SharedLibraryFileName(const std::string& name) {
    return name + ".dll";
}

}  // namespace platform
