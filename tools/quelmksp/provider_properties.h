// The provider's own properties, read through GetProviderProperty, as
// 'info' shows them.
#pragma once

#include <string>
#include <vector>

#include "provider/ncrypt_provider.h"

struct ProviderProperty {
    // The property's name in the interface, e.g. "Max Name Length".
    std::string name;
    // For people: "64", "hardware, removable (0x19)", "(not set)".
    std::string text;
    // The same value as JSON: a number, a string or null.
    std::string json;
};

// Every readable property in a fixed order; one that cannot be read shows
// its status instead of a value.
std::vector<ProviderProperty> ReadProviderProperties(const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table,
                                                     NCRYPT_PROV_HANDLE provider);
