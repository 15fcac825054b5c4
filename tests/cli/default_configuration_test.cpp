// How register reads the default configuration: every value a .reg file
// sets, as the provider's reader of the format reads it, so that what the
// client writes into the Windows registry is what the provider would find.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "default_configuration.h"

namespace {

const std::string kHeader = "Windows Registry Editor Version 5.00\r\n\r\n";

std::vector<uint8_t> Utf16(std::u16string_view text) {
    std::vector<uint8_t> bytes;
    for (char16_t c : text) bytes.insert(bytes.end(), {uint8_t(c & 0xFF), uint8_t(c >> 8)});
    return bytes;
}

std::string Describe(const std::vector<ConfigurationValue>& values) {
    std::string text;
    for (const ConfigurationValue& value : values) {
        text += Utf8(value.key) + " | " + Utf8(value.name) + " | " + std::to_string(value.type) +
                " | " + std::to_string(value.data.size()) + "\n";
    }
    return text;
}

TEST(DefaultConfiguration, EveryValueOnceInFileOrderWithItsLastSetting) {
    const std::string file = kHeader +
                             "; a comment\r\n"
                             "[HKEY_LOCAL_MACHINE\\Software\\Vendor\\Product]\r\n"
                             "\"Log\"=\"00000000\"\r\n"
                             "\"Gone\"=\"soon\"\r\n"
                             "@=\"default\"\r\n"
                             "[hkey_local_machine\\System\\Providers\\Name v1]\r\n"
                             "\"Aliases\"=hex(7):41,00,00,00,\\\r\n"
                             "  42,00,43,00,00,00,00,00\r\n"
                             "\"Length\"=dword:00000800\r\n"
                             "\"A \\\"quoted\\\" name\"=\"x\"\r\n"
                             "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor\\Product]\r\n"
                             "\"Gone\"=-\r\n"
                             "\"log\"=\"1\"\r\n";
    const std::vector<ConfigurationValue> values = ConfigurationValues(file);
    ASSERT_EQ(values.size(), 5u) << Describe(values);

    EXPECT_EQ(values[0].key, u"Software\\Vendor\\Product");
    EXPECT_EQ(values[0].name, u"Log");
    EXPECT_EQ(values[0].type, 1u);
    EXPECT_EQ(values[0].data, Utf16(std::u16string(u"1") + u'\0')) << "the later setting wins";
    EXPECT_EQ(values[1].name, u"") << "the key's default value";
    EXPECT_EQ(values[2].key, u"System\\Providers\\Name v1");
    EXPECT_EQ(values[2].type, 7u);
    EXPECT_EQ(MultiStrings(values[2].data), (std::vector<std::u16string>{u"A", u"BC"}));
    EXPECT_EQ(values[3].type, 4u);
    EXPECT_EQ(values[3].data, (std::vector<uint8_t>{0x00, 0x08, 0x00, 0x00}));
    EXPECT_EQ(values[4].name, u"A \"quoted\" name");

    EXPECT_EQ(
        ConfigurationKeys(values),
        (std::vector<std::u16string>{u"Software\\Vendor\\Product", u"System\\Providers\\Name v1"}))
        << "keys compare without regard to case";
}

TEST(DefaultConfiguration, RegeditsUtf16FileReadsAsItsUtf8Twin) {
    const std::u16string text =
        u"Windows Registry Editor Version 5.00\r\n\r\n"
        u"[HKEY_LOCAL_MACHINE\\Software\\Vendor\\Product]\r\n"
        u"\"Name\"=\"Vel\u00f1ora\"\r\n";
    std::vector<uint8_t> bytes = {0xFF, 0xFE};
    const std::vector<uint8_t> body = Utf16(text);
    bytes.insert(bytes.end(), body.begin(), body.end());
    const std::vector<ConfigurationValue> values = ConfigurationValues(
        std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
    ASSERT_EQ(values.size(), 1u);
    EXPECT_EQ(values[0].data, Utf16(std::u16string(u"Vel\u00f1ora") + u'\0'));
}

TEST(DefaultConfiguration, WhatCannotBeWrittenAsReadIsRefusedByName) {
    auto message = [](const std::string& body) {
        try {
            ConfigurationValues(kHeader + body);
        } catch (const std::runtime_error& error) {
            return std::string(error.what());
        }
        return std::string("accepted");
    };
    EXPECT_EQ(message("[HKEY_CURRENT_USER\\Software\\Vendor]\n\"V\"=\"1\"\n"),
              "the configuration names a key outside HKEY_LOCAL_MACHINE: "
              "HKEY_CURRENT_USER\\Software\\Vendor");
    EXPECT_EQ(
        message("[HKEY_LOCAL_MACHINEX\\Software]\n"),
        "the configuration names a key outside HKEY_LOCAL_MACHINE: HKEY_LOCAL_MACHINEX\\Software");
    EXPECT_EQ(message("[HKEY_LOCAL_MACHINE\\Software\\Vendor]\n\"Length\"=dword:800\n"),
              "the configuration's value \"Length\" under Software\\Vendor cannot be read");
    EXPECT_EQ(message("[HKEY_LOCAL_MACHINE\\Software\\Vendor]\n\"Unclosed=\"1\"\n"),
              "line 4 of the configuration is not a value");
    EXPECT_TRUE(ConfigurationValues(kHeader).empty());
    EXPECT_TRUE(
        ConfigurationValues("not a registry file\n[HKEY_LOCAL_MACHINE\\S]\n\"V\"=\"1\"\n").empty())
        << "the provider reads nothing from a file without the header";
}

}  // namespace
