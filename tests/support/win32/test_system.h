// The Windows (under Wine) side of test_system.h.
#pragma once

// Lean, as the provider's own headers include it, so that the two agree.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>

namespace test_system {
namespace detail {

// Wine's own entry points: the Unix name of a Windows path, and running a
// Unix program and waiting for it (what `start /unix` uses). CreateProcess
// starts a Unix program too, but neither waits for it nor reports its exit.
using UnixFileNameFn = char*(CDECL*)(const wchar_t* path);
using UnixSpawnFn = LONG(CDECL*)(char* const argv[], int wait);

template <typename Fn>
Fn WineFunction(const wchar_t* module, const char* name) {
    auto fn = reinterpret_cast<Fn>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(module), name)));
    if (!fn) throw std::runtime_error(std::string("not running under Wine: no ") + name);
    return fn;
}

inline std::wstring Wide(const std::string& text, UINT codePage = CP_ACP) {
    std::wstring out(text.size(), L'\0');
    int length = MultiByteToWideChar(codePage, 0, text.data(), static_cast<int>(text.size()),
                                     out.data(), static_cast<int>(out.size()));
    out.resize(length > 0 ? length : 0);
    return out;
}

inline const wchar_t* const kRegistryKeys[] = {
    L"Software\\Velmora Ltd.\\QUELM SDK",
    L"System\\CurrentControlSet\\Control\\Cryptography\\Providers\\Velmora KSP v4.5",
};

}  // namespace detail

// The C runtime keeps its own copy of the environment for getenv; _putenv_s
// changes both it and the process environment that Wine's side reads.
inline void SetVariable(const std::string& name, const std::string& value) {
    _putenv_s(name.c_str(), value.c_str());
    SetEnvironmentVariableA(name.c_str(), value.c_str());
}

inline void UnsetVariable(const std::string& name) {
    _putenv_s(name.c_str(), "");
    SetEnvironmentVariableA(name.c_str(), nullptr);
}

inline std::string Variable(const std::string& name) {
    const char* value = std::getenv(name.c_str());
    return value ? value : "";
}

inline std::string UnixPath(const std::string& path) {
    static const auto toUnix =
        detail::WineFunction<detail::UnixFileNameFn>(L"kernel32.dll", "wine_get_unix_file_name");
    char* unixPath = toUnix(detail::Wide(path).c_str());
    if (!unixPath) throw std::runtime_error("no Unix name for " + path);
    std::string result(unixPath);
    HeapFree(GetProcessHeap(), 0, unixPath);
    return result;
}

inline int RunUnixProgram(const std::vector<std::string>& arguments,
                          const std::vector<std::pair<std::string, std::string>>& variables) {
    static const auto spawn =
        detail::WineFunction<detail::UnixSpawnFn>(L"ntdll.dll", "__wine_unix_spawnvp");
    // The shell discards the output, which would otherwise land in the test's.
    std::vector<std::string> command{"/bin/sh", "-c", "exec \"$@\" >/dev/null", "sh", "env"};
    for (const auto& [name, value] : variables) command.push_back(name + "=" + value);
    command.insert(command.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& argument : command) argv.push_back(argument.data());
    argv.push_back(nullptr);
    const LONG status = spawn(argv.data(), TRUE);
    return status >= 0 && status < 256 ? static_cast<int>(status) : -1;
}

inline bool UnderWine() {
    return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

// The provider reads the real registry: the file is imported with the same
// `reg import` that an installation uses, after the keys it may set are
// cleared of an earlier test's values. Wine's reg reads a file without a
// byte-order mark as ANSI and widens hex(7) lists a second time, so the file
// is imported in regedit's own export form, UTF-16LE with CR LF.
inline void UseRegistryFile(const std::string& path) {
    ForgetRegistryFile();
    std::ifstream in(path, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::wstring wide = L"\xFEFF";
    for (wchar_t c : detail::Wide(text, CP_UTF8)) {
        if (c == L'\n' && (wide.empty() || wide.back() != L'\r')) wide.push_back(L'\r');
        wide.push_back(c);
    }
    const std::string imported = path + ".utf16";
    std::ofstream(imported, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(wide.data()),
               static_cast<std::streamsize>(wide.size() * sizeof(wchar_t)));

    std::wstring command = L"reg.exe import \"" + detail::Wide(imported) + L"\"";
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                        nullptr, &startup, &process))
        throw std::runtime_error("reg import could not start");
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD exitCode = 1;
    GetExitCodeProcess(process.hProcess, &exitCode);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    if (exitCode != 0) throw std::runtime_error("reg import failed on " + path);
}

inline void ForgetRegistryFile() {
    for (const wchar_t* key : detail::kRegistryKeys) RegDeleteTreeW(HKEY_LOCAL_MACHINE, key);
}

}  // namespace test_system
