#include <windows.h>
// After windows.h, which they need.
#include <bcrypt.h>
#include <ncrypt.h>

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "client_error.h"
#include "registration.h"

// mingw-w64's bcrypt.h leaves these out; bcrypt.dll exports them and its
// import library has them.
extern "C" {
NTSTATUS WINAPI BCryptRegisterProvider(LPCWSTR pszProvider, ULONG dwFlags,
                                       PCRYPT_PROVIDER_REG pReg);
NTSTATUS WINAPI BCryptUnregisterProvider(LPCWSTR pszProvider);
NTSTATUS WINAPI BCryptAddContextFunctionProvider(ULONG dwTable, LPCWSTR pszContext,
                                                 ULONG dwInterface, LPCWSTR pszFunction,
                                                 LPCWSTR pszProvider, ULONG dwPosition);
NTSTATUS WINAPI BCryptRemoveContextFunctionProvider(ULONG dwTable, LPCWSTR pszContext,
                                                    ULONG dwInterface, LPCWSTR pszFunction,
                                                    LPCWSTR pszProvider);
}

namespace {

constexpr wchar_t kProvider[] = L"Velmora KSP v4.5";
constexpr char kProviderText[] = "Velmora KSP v4.5";
constexpr char kKeyStorage[] = "NCRYPT_KEY_STORAGE_INTERFACE, KEY_STORAGE";

constexpr NTSTATUS kStatusSuccess = 0;
constexpr auto kStatusNotImplemented = static_cast<NTSTATUS>(0xC0000002);
constexpr auto kStatusAccessDenied = static_cast<NTSTATUS>(0xC0000022);
constexpr auto kStatusObjectNameNotFound = static_cast<NTSTATUS>(0xC0000034);
constexpr auto kStatusNotFound = static_cast<NTSTATUS>(0xC0000225);

std::string StatusText(NTSTATUS status) {
    static const struct {
        uint32_t value;
        const char* name;
    } kNames[] = {{0x00000000, "STATUS_SUCCESS"},
                  {0xC0000002, "STATUS_NOT_IMPLEMENTED"},
                  {0xC000000D, "STATUS_INVALID_PARAMETER"},
                  {0xC0000017, "STATUS_NO_MEMORY"},
                  {0xC0000022, "STATUS_ACCESS_DENIED"},
                  {0xC0000034, "STATUS_OBJECT_NAME_NOT_FOUND"},
                  {0xC0000035, "STATUS_OBJECT_NAME_COLLISION"},
                  {0xC0000225, "STATUS_NOT_FOUND"}};
    for (const auto& known : kNames)
        if (known.value == static_cast<uint32_t>(status)) return known.name;
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%08lX", static_cast<unsigned long>(status));
    return hex;
}

std::string ErrorText(LONG error) {
    std::string message = "Windows error " + std::to_string(error);
    char* text = nullptr;
    DWORD length = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, static_cast<DWORD>(error), 0, reinterpret_cast<LPSTR>(&text), 0, nullptr);
    if (length && text) {
        std::string said(text, length);
        while (!said.empty() && (said.back() == '\n' || said.back() == '\r' || said.back() == ' ' ||
                                 said.back() == '.'))
            said.pop_back();
        message += " (" + said + ")";
    }
    LocalFree(text);
    return message;
}

std::string AdminHint(bool denied) {
    return denied ? "; registering a provider takes an administrator" : "";
}

// Wine tells its version through an export of its own ntdll.
std::string WineVersion() {
    HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    if (!ntdll) return {};
    void* entry = reinterpret_cast<void*>(GetProcAddress(ntdll, "wine_get_version"));
    if (!entry) return {};
    using VersionFn = const char*(CDECL*)();
    const char* version = reinterpret_cast<VersionFn>(entry)();
    return version ? version : "?";
}

std::wstring Wide(std::u16string_view text) {
    return std::wstring(text.begin(), text.end());
}

std::string KeyText(std::u16string_view key) {
    return "HKLM\\" + Utf8(key);
}

// What register did, undone in reverse order should a later step fail.
class UndoList {
public:
    UndoList() = default;
    UndoList(const UndoList&) = delete;
    UndoList& operator=(const UndoList&) = delete;
    ~UndoList() {
        for (auto step = steps_.rbegin(); step != steps_.rend(); ++step) {
            try {
                (*step)();
            } catch (...) {
            }
        }
    }
    void Add(std::function<void()> step) { steps_.push_back(std::move(step)); }
    void Keep() { steps_.clear(); }

private:
    std::vector<std::function<void()>> steps_;
};

class OpenKey {
public:
    OpenKey() = default;
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;
    ~OpenKey() {
        if (key_) RegCloseKey(key_);
    }
    HKEY* out() { return &key_; }
    HKEY get() const { return key_; }

private:
    HKEY key_ = nullptr;
};

constexpr REGSAM kView = KEY_WOW64_64KEY;

bool KeyIsEmpty(const std::wstring& key) {
    OpenKey open;
    if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, key.c_str(), 0, KEY_QUERY_VALUE | kView, open.out()) !=
        ERROR_SUCCESS)
        return false;
    DWORD subKeys = 0, values = 0;
    return RegQueryInfoKeyW(open.get(), nullptr, nullptr, nullptr, &subKeys, nullptr, nullptr,
                            &values, nullptr, nullptr, nullptr, nullptr) == ERROR_SUCCESS &&
           subKeys == 0 && values == 0;
}

// Removes a configuration key whole, then the vendor's folders above it
// under Software as long as they are empty. Keys above it elsewhere
// (System\...\Providers) belong to Windows and stay.
void RemoveKey(const std::u16string& key, std::vector<std::string>* steps) {
    std::wstring path = Wide(key);
    LONG status = RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str());
    if (status != ERROR_SUCCESS && status != ERROR_FILE_NOT_FOUND)
        throw ClientError(exit_code::kProvider,
                          "cannot remove " + KeyText(key) + ": " + ErrorText(status));
    if (steps) steps->push_back((status == ERROR_SUCCESS ? "removed " : "absent  ") + KeyText(key));
    const size_t first = path.find(L'\\');
    if (first == std::wstring::npos || _wcsicmp(path.substr(0, first).c_str(), L"Software") != 0)
        return;
    for (size_t cut = path.rfind(L'\\'); cut != std::wstring::npos && cut > first;
         cut = path.rfind(L'\\')) {
        path.resize(cut);
        if (!KeyIsEmpty(path) ||
            RegDeleteKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), kView, 0) != ERROR_SUCCESS)
            return;
        if (steps) steps->push_back("removed " + KeyText(std::u16string(path.begin(), path.end())));
    }
}

// Writes the values that are not there yet; values already set are the
// administrator's and stay as they are.
void WriteConfiguration(const std::vector<ConfigurationValue>& values,
                        std::vector<std::string>& steps, UndoList& undo) {
    for (const ConfigurationValue& value : values) {
        const std::wstring path = Wide(value.key), name = Wide(value.name);
        const std::string where = KeyText(value.key) + ": \"" + Utf8(value.name) + "\"";
        OpenKey key;
        DWORD disposition = 0;
        LONG status = RegCreateKeyExW(
            HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
            KEY_QUERY_VALUE | KEY_SET_VALUE | kView, nullptr, key.out(), &disposition);
        if (status != ERROR_SUCCESS)
            throw ClientError(exit_code::kProvider, "cannot create " + KeyText(value.key) + ": " +
                                                        ErrorText(status) +
                                                        AdminHint(status == ERROR_ACCESS_DENIED));
        if (disposition == REG_CREATED_NEW_KEY)
            undo.Add([key = value.key] { RemoveKey(key, nullptr); });
        if (RegQueryValueExW(key.get(), name.c_str(), nullptr, nullptr, nullptr, nullptr) ==
            ERROR_SUCCESS) {
            steps.push_back("kept    " + where + " (already set)");
            continue;
        }
        status = RegSetValueExW(key.get(), name.c_str(), 0, value.type, value.data.data(),
                                static_cast<DWORD>(value.data.size()));
        if (status != ERROR_SUCCESS)
            throw ClientError(exit_code::kProvider,
                              "cannot write " + where + ": " + ErrorText(status));
        undo.Add([path, name] {
            OpenKey open;
            if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_SET_VALUE | kView,
                              open.out()) == ERROR_SUCCESS)
                RegDeleteValueW(open.get(), name.c_str());
        });
        steps.push_back("written " + where);
    }
}

// The names the provider answers to: the default configuration's "Aliases"
// under its Providers key, or its own name when the file has none.
std::vector<std::wstring> Aliases(const std::vector<ConfigurationValue>& values) {
    std::vector<std::wstring> aliases;
    for (const ConfigurationValue& value : values) {
        const std::wstring key = Wide(value.key), name = Wide(value.name);
        const size_t slash = key.rfind(L'\\');
        if (value.type == REG_MULTI_SZ && _wcsicmp(name.c_str(), L"Aliases") == 0 &&
            slash != std::wstring::npos && key.substr(slash + 1) == kProvider)
            for (const std::u16string& alias : MultiStrings(value.data))
                aliases.push_back(Wide(alias));
    }
    if (aliases.empty()) aliases.emplace_back(kProvider);
    return aliases;
}

std::string Joined(const std::vector<std::wstring>& aliases) {
    std::string text;
    for (const std::wstring& alias : aliases) {
        if (!text.empty()) text += ", ";
        text += Utf8(std::u16string(alias.begin(), alias.end()));
    }
    return text;
}

std::string StubReason(const std::string& wine, const char* functions) {
    return (wine.empty() ? std::string("here ") : "under Wine " + wine + " ") + functions +
           " are stubs that change nothing";
}

}  // namespace

RegistrationResult RegisterProvider(const DefaultConfiguration& configuration) {
    RegistrationResult result;
    UndoList undo;
    const std::string wine = WineVersion();

    std::vector<std::wstring> aliases = Aliases(configuration.values);
    std::vector<PWSTR> aliasPointers;
    for (std::wstring& alias : aliases) aliasPointers.push_back(alias.data());
    std::wstring function = NCRYPT_KEY_STORAGE_ALGORITHM;
    PWSTR functions[] = {function.data()};
    CRYPT_INTERFACE_REG keyStorage{NCRYPT_KEY_STORAGE_INTERFACE, CRYPT_LOCAL, 1, functions};
    PCRYPT_INTERFACE_REG interfaces[] = {&keyStorage};
    const std::string imageName = QUELMKSP_LIBRARY_NAME;
    std::wstring image(imageName.begin(), imageName.end());
    CRYPT_IMAGE_REG userMode{image.data(), 1, interfaces};
    CRYPT_PROVIDER_REG registration{static_cast<ULONG>(aliasPointers.size()), aliasPointers.data(),
                                    &userMode, nullptr};

    NTSTATUS status = BCryptRegisterProvider(kProvider, CRYPT_OVERWRITE, &registration);
    result.steps.push_back("BCryptRegisterProvider: " + StatusText(status) + " (\"" +
                           kProviderText + "\", user mode, image " + QUELMKSP_LIBRARY_NAME + ", " +
                           kKeyStorage + ", aliases " + Joined(aliases) + ")");
    bool stubbed = status == kStatusNotImplemented;
    if (status != kStatusSuccess && !stubbed)
        throw ClientError(exit_code::kProvider,
                          "BCryptRegisterProvider failed: " + StatusText(status) +
                              AdminHint(status == kStatusAccessDenied));
    if (status == kStatusSuccess) undo.Add([] { BCryptUnregisterProvider(kProvider); });

    status = BCryptAddContextFunctionProvider(
        CRYPT_LOCAL, CRYPT_DEFAULT_CONTEXT, NCRYPT_KEY_STORAGE_INTERFACE,
        NCRYPT_KEY_STORAGE_ALGORITHM, kProvider, CRYPT_PRIORITY_BOTTOM);
    result.steps.push_back("BCryptAddContextFunctionProvider: " + StatusText(status) +
                           " (CRYPT_LOCAL, context Default, " + kKeyStorage + ")");
    stubbed |= status == kStatusNotImplemented;
    if (status != kStatusSuccess && status != kStatusNotImplemented)
        throw ClientError(exit_code::kProvider,
                          "BCryptAddContextFunctionProvider failed: " + StatusText(status) +
                              AdminHint(status == kStatusAccessDenied));
    if (status == kStatusSuccess)
        undo.Add([] {
            BCryptRemoveContextFunctionProvider(CRYPT_LOCAL, CRYPT_DEFAULT_CONTEXT,
                                                NCRYPT_KEY_STORAGE_INTERFACE,
                                                NCRYPT_KEY_STORAGE_ALGORITHM, kProvider);
        });

    WriteConfiguration(configuration.values, result.steps, undo);
    undo.Keep();
    if (stubbed || !wine.empty())
        result.cngUnavailable =
            std::string(
                "the provider is not registered with CNG, so NCryptOpenStorageProvider "
                "will not find it: ") +
            StubReason(wine, "BCryptRegisterProvider and BCryptAddContextFunctionProvider");
    return result;
}

RegistrationResult UnregisterProvider(const DefaultConfiguration& configuration) {
    RegistrationResult result;
    const std::string wine = WineVersion();
    bool stubbed = false;
    auto check = [&](const char* function, NTSTATUS status, const std::string& what) {
        result.steps.push_back(std::string(function) + ": " + StatusText(status) + " (" + what +
                               ")");
        stubbed |= status == kStatusNotImplemented;
        if (status != kStatusSuccess && status != kStatusNotImplemented &&
            status != kStatusNotFound && status != kStatusObjectNameNotFound)
            throw ClientError(exit_code::kProvider, std::string(function) +
                                                        " failed: " + StatusText(status) +
                                                        AdminHint(status == kStatusAccessDenied));
    };
    check("BCryptRemoveContextFunctionProvider",
          BCryptRemoveContextFunctionProvider(CRYPT_LOCAL, CRYPT_DEFAULT_CONTEXT,
                                              NCRYPT_KEY_STORAGE_INTERFACE,
                                              NCRYPT_KEY_STORAGE_ALGORITHM, kProvider),
          std::string("CRYPT_LOCAL, context Default, ") + kKeyStorage);
    check("BCryptUnregisterProvider", BCryptUnregisterProvider(kProvider),
          std::string("\"") + kProviderText + "\"");
    for (const std::u16string& key : ConfigurationKeys(configuration.values))
        RemoveKey(key, &result.steps);
    if (stubbed || !wine.empty())
        result.cngUnavailable =
            "CNG's registration was left as it was: " +
            StubReason(wine, "BCryptRemoveContextFunctionProvider and BCryptUnregisterProvider");
    return result;
}
