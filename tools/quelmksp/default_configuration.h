// The provider's default configuration, config/quelmksp.reg, compiled into
// the client: `register` writes exactly the values that file sets, and
// `unregister` removes the keys that hold them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct ConfigurationValue {
    // Under HKEY_LOCAL_MACHINE, without the hive's name.
    std::u16string key;
    std::u16string name;
    uint32_t type = 0;
    std::vector<uint8_t> data;
};

struct DefaultConfiguration {
    std::string_view file;
    std::vector<ConfigurationValue> values;
};

// Every value that a .reg file sets, in the order of the file, each once.
// Values the file deletes again are left out. Throws std::runtime_error for
// a key outside HKEY_LOCAL_MACHINE or a value the provider could not read.
std::vector<ConfigurationValue> ConfigurationValues(std::string_view regFile);

// The keys that hold the values, each once, in the order of the values.
std::vector<std::u16string> ConfigurationKeys(const std::vector<ConfigurationValue>& values);

// The strings of a REG_MULTI_SZ value, without the empty one that ends it.
std::vector<std::u16string> MultiStrings(const std::vector<uint8_t>& data);

// A key or value name for messages, in UTF-8.
std::string Utf8(std::u16string_view text);
