#include <fstream>

#include "platform/module.h"
#include "provider_client.h"
#include "provider_location.h"

// Beside the client in a build; in lib/velmora beside bin/ once installed.
std::string DefaultProviderLibrary() {
    const std::string beside = platform::OwnFolder() + ProviderClient::kDefaultLibrary;
    const std::string installed =
        platform::OwnFolder() + "../lib/velmora/" + ProviderClient::kDefaultLibrary;
    return std::ifstream(beside) || !std::ifstream(installed) ? beside : installed;
}
