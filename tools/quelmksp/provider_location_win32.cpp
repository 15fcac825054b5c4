#include <windows.h>

#include "platform/module.h"
#include "platform/text.h"
#include "provider_client.h"
#include "provider_location.h"

// Beside the client in a build or a copied folder; where the installer puts
// it, in the system folder, where CNG's router loads it from, otherwise.
std::string DefaultProviderLibrary() {
    const std::string beside = platform::OwnFolder() + ProviderClient::kDefaultLibrary;
    if (GetFileAttributesW(platform::FromUtf8(beside).c_str()) != INVALID_FILE_ATTRIBUTES)
        return beside;
    wchar_t system[MAX_PATH];
    const UINT length = GetSystemDirectoryW(system, MAX_PATH);
    if (length == 0 || length >= MAX_PATH) return beside;
    return platform::ToUtf8(platform::WideView(system, length)) + "\\" +
           ProviderClient::kDefaultLibrary;
}
