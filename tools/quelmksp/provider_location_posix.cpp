#include "platform/module.h"
#include "provider_client.h"
#include "provider_location.h"

std::string DefaultProviderLibrary() {
    return platform::OwnFolder() + ProviderClient::kDefaultLibrary;
}
