#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/posix/reg_file.h"
#include "platform/posix/reg_file_cache.h"
#include "platform/registry.h"
#include "support/registry_file.h"

namespace reg = platform::registry;
namespace regfile = platform::regfile;

namespace {

const char16_t* kSdk = u"Software\\Velmora Ltd.\\QUELM SDK";
const char16_t* kProviders =
    u"System\\CurrentControlSet\\Control\\Cryptography\\Providers\\Velmora KSP v4.5";

// A file as regedit writes it, with every value form the provider reads.
const std::string kRegeditFile =
    "Windows Registry Editor Version 5.00\n"
    "\n"
    "; written by the installer\n"
    "[HKEY_LOCAL_MACHINE\\Software\\Velmora Ltd.\\QUELM SDK]\n"
    "\"KSPLOG\"=\"00000001\"\n"
    "\"KSPDIR\"=\"C:\\\\logs\\\\say \\\"hi\\\".log\"\n"
    "\"dwUseProviderCache\"=dword:0000000a\n"
    "\"Blob\"=hex:01,02,ff\n"
    "@=\"default\"\n"
    "\n"
    "[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\Cryptography\\Providers\\"
    "Velmora KSP v4.5]\n"
    "\"Aliases\"=hex(7):56,00,4b,00,00,00,\\\n"
    "  41,00,00,00,00,00\n"
    "\"Default Key Length\"=dword:00000800\n";

std::string Utf16leWithBom(const std::string& ascii) {
    std::string out = "\xFF\xFE";
    for (char c : ascii) {
        if (c == '\n') out += std::string("\r\0", 2);
        out.push_back(c);
        out.push_back('\0');
    }
    return out;
}

std::u16string ReadString(const char16_t* key, const char16_t* name, long* status = nullptr) {
    char16_t buffer[256] = {};
    uint32_t size = sizeof buffer;
    long rc = reg::GetValue(key, name, reg::kRestrictString, nullptr, buffer, &size);
    if (status) *status = rc;
    return rc == reg::kSuccess ? std::u16string(buffer) : u"<fail>";
}

std::optional<uint32_t> ReadDword(const char16_t* key, const char16_t* name) {
    uint32_t value = 0;
    uint32_t size = sizeof value;
    if (reg::GetValue(key, name, reg::kRestrictDword, nullptr, &value, &size) != reg::kSuccess)
        return std::nullopt;
    return value;
}

std::vector<uint8_t> Bytes(std::initializer_list<int> values) {
    return std::vector<uint8_t>(values.begin(), values.end());
}

}  // namespace

TEST(RegistryFile, ReadsEveryValueFormInBothEncodingsTheToolsWrite) {
    TempDir dir;
    RegistryFile file(dir, "");
    for (const std::string& bytes :
         {kRegeditFile, Utf16leWithBom(kRegeditFile), "\xEF\xBB\xBF" + kRegeditFile}) {
        WriteFile(file.path(), bytes);
        EXPECT_EQ(ReadString(kSdk, u"KSPLOG"), u"00000001");
        EXPECT_EQ(ReadString(kSdk, u"KSPDIR"), u"C:\\logs\\say \"hi\".log");
        EXPECT_EQ(ReadString(kSdk, u""), u"default");
        EXPECT_EQ(ReadDword(kSdk, u"dwUseProviderCache"), 10u);
        EXPECT_EQ(ReadDword(kProviders, u"Default Key Length"), 2048u);

        char16_t aliases[16];
        uint32_t size = sizeof aliases;
        uint32_t type = 0;
        ASSERT_EQ(
            reg::GetValue(kProviders, u"Aliases", reg::kRestrictMultiString, &type, aliases, &size),
            reg::kSuccess);
        EXPECT_EQ(type, reg::kTypeMultiString);
        EXPECT_EQ(std::u16string(aliases, size / 2), std::u16string(u"VK\0A\0\0", 6));

        uint8_t blob[8];
        size = sizeof blob;
        ASSERT_EQ(reg::GetValue(kSdk, u"Blob", reg::kRestrictAny, &type, blob, &size),
                  reg::kSuccess);
        EXPECT_EQ(type, reg::kTypeBinary);
        EXPECT_EQ(std::vector<uint8_t>(blob, blob + size), Bytes({1, 2, 0xFF}));
    }
}

TEST(RegistryFile, MatchesNamesWithoutCaseAndLetsLaterLinesWin) {
    TempDir dir;
    RegistryFile file(dir,
                      "[hkey_local_machine\\SOFTWARE\\velmora ltd.\\quelm sdk]\n"
                      "\"kspLOG\"=\"first\"\n"
                      "\"Gone\"=\"x\"\n"
                      "[HKEY_CURRENT_USER\\Software\\Velmora Ltd.\\QUELM SDK]\n"
                      "\"Other\"=\"not machine-wide\"\n"
                      "[HKEY_LOCAL_MACHINE\\Software\\Velmora Ltd.\\QUELM SDK]\n"
                      "\"KSPLOG\"=\"second\"\n"
                      "\"Gone\"=-\n"
                      "[HKEY_LOCAL_MACHINE\\Software\\Deleted]\n"
                      "\"V\"=\"x\"\n"
                      "[-HKEY_LOCAL_MACHINE\\Software\\Deleted]\n");
    EXPECT_EQ(ReadString(kSdk, u"KSPLOG"), u"second");
    long status = 0;
    ReadString(kSdk, u"Gone", &status);
    EXPECT_EQ(status, reg::kFileNotFound);
    ReadString(kSdk, u"Other", &status);
    EXPECT_EQ(status, reg::kFileNotFound);
    EXPECT_FALSE(reg::Key::Open(u"Software\\Deleted"));
    EXPECT_TRUE(reg::Key::Open(u"Software\\Velmora Ltd."));  // a parent exists implicitly
}

TEST(RegistryFile, ReadsFollowTheRegistryFunctionsRules) {
    TempDir dir;
    RegistryFile file(dir, std::string(RegistryFile::kSdkKey) +
                               "\"Text\"=\"abcdef\"\n"
                               "\"Number\"=dword:00000007\n"
                               "\"Unterminated\"=hex(1):41,00,00,00\n");
    char16_t small[4];
    uint32_t size = sizeof small;
    EXPECT_EQ(reg::GetValue(kSdk, u"Text", reg::kRestrictString, nullptr, small, &size),
              reg::kMoreData);
    EXPECT_EQ(size, 14u) << "the size it would take, terminator included";

    size = 0;
    EXPECT_EQ(reg::GetValue(kSdk, u"Text", reg::kRestrictString, nullptr, nullptr, &size),
              reg::kSuccess);
    EXPECT_EQ(size, 14u);

    uint32_t number = 0;
    size = sizeof number;
    EXPECT_EQ(reg::GetValue(kSdk, u"Text", reg::kRestrictDword, nullptr, &number, &size),
              reg::kUnsupportedType);
    EXPECT_EQ(reg::GetValue(kSdk, u"Number", reg::kRestrictString | reg::kRestrictMultiString,
                            nullptr, &number, &size),
              reg::kUnsupportedType);
    EXPECT_EQ(reg::GetValue(kSdk, u"Number", 0, nullptr, &number, &size), reg::kInvalidParameter);
    EXPECT_EQ(ReadString(kSdk, u"Unterminated"), u"A");

    long status = 0;
    auto key = reg::Key::Open(kSdk, &status);
    ASSERT_TRUE(key);
    uint32_t type = 0;
    size = sizeof number;
    EXPECT_EQ(key->QueryValue(u"Number", &type, &number, &size), reg::kSuccess);
    EXPECT_EQ(type, reg::kTypeDword);
    EXPECT_EQ(number, 7u);
    EXPECT_EQ(key->QueryValue(u"Missing", &type, &number, &size), reg::kFileNotFound);
    EXPECT_FALSE(reg::Key::Open(u"Software\\Nobody", &status));
    EXPECT_EQ(status, reg::kFileNotFound);

    setenv("QUELMKSP_REGISTRY", (dir / "absent.reg").c_str(), 1);
    EXPECT_EQ(ReadString(kSdk, u"Text"), u"<fail>");
}

TEST(RegistryFile, MalformedLinesMakeOnlyWhatTheyTouchUnreadable) {
    auto find = [](const std::string& body, std::u16string_view key, std::u16string_view name) {
        return regfile::FindInBytes("Windows Registry Editor Version 5.00\n" + body, key, name);
    };
    const std::string sdk = RegistryFile::kSdkKey;

    // A value that a later broken line touches is unreadable, not the old value.
    auto broken =
        find(sdk + "\"KSPLOG\"=\"1\"\n\"KSPLOG\"=\"2\n\"KSPDIR\"=\"d\"\n", kSdk, u"KSPLOG");
    EXPECT_EQ(broken.outcome, regfile::Outcome::kUnreadable);
    EXPECT_EQ(find(sdk + "\"KSPLOG\"=\"2\n\"KSPDIR\"=\"d\"\n", kSdk, u"KSPDIR").outcome,
              regfile::Outcome::kFound);

    // Values under a broken key line belong to no key.
    auto orphan =
        find(sdk + "\"A\"=\"1\"\n[HKEY_LOCAL_MACHINE\\Software\\X\n\"A\"=\"2\"\n", kSdk, u"A");
    ASSERT_EQ(orphan.outcome, regfile::Outcome::kFound);
    EXPECT_EQ(orphan.value.data, Bytes({'1', 0, 0, 0}));

    for (const char* bad :
         {"dword:800", "dword:000008000", "dword:0000080g", "hex(7):56,00", "hex:1,2", "hex:01,,02",
          "hex(4):01,02", "\"a\\nb\"", "\"x\" junk", "text", "hex(7):56,00,00,00,\\"}) {
        EXPECT_EQ(find(sdk + "\"V\"=" + bad + "\n", kSdk, u"V").outcome,
                  regfile::Outcome::kUnreadable)
            << bad;
    }
    EXPECT_EQ(regfile::FindInBytes(sdk + "\"V\"=\"1\"\n", kSdk, u"V").outcome,
              regfile::Outcome::kKeyMissing)
        << "no header, no registry file";
}

TEST(RegistryFile, CutFilesNeverYieldAPartOfAValue) {
    const std::u16string_view names[] = {u"KSPLOG", u"KSPDIR", u"dwUseProviderCache"};
    auto full = [&](const std::string& bytes, std::u16string_view key, std::u16string_view name) {
        return regfile::FindInBytes(bytes, key, name);
    };
    for (const std::string& bytes : {kRegeditFile, Utf16leWithBom(kRegeditFile)}) {
        for (size_t cut = 0; cut <= bytes.size(); ++cut) {
            std::string prefix = bytes.substr(0, cut);
            for (auto name : names) {
                auto part = full(prefix, kSdk, name);
                if (part.outcome == regfile::Outcome::kFound) {
                    EXPECT_EQ(part.value.data, full(bytes, kSdk, name).value.data) << cut;
                }
            }
            for (auto name : {u"Aliases", u"Default Key Length"}) {
                auto part = full(prefix, kProviders, name);
                if (part.outcome == regfile::Outcome::kFound) {
                    EXPECT_EQ(part.value.data, full(bytes, kProviders, name).value.data) << cut;
                }
            }
        }
    }
}

TEST(RegistryFile, BinaryAndEnormousFilesAreReadWithoutHarm) {
    std::mt19937 random(20261123);
    const std::string header = "Windows Registry Editor Version 5.00\n";
    for (int round = 0; round < 200; ++round) {
        std::string noise(1 + random() % 4096, '\0');
        for (char& c : noise) c = static_cast<char>(random());
        for (const std::string& bytes :
             {noise, header + noise, header + RegistryFile::kSdkKey + noise}) {
            auto result = regfile::FindInBytes(bytes, kSdk, u"KSPLOG");
            EXPECT_NE(result.outcome, regfile::Outcome::kFound);
        }
    }

    // One 24 MiB line: it stays unreadable and does not hide the lines after it.
    std::string huge = header + RegistryFile::kSdkKey + "\"KSPDIR\"=\"" +
                       std::string(24 << 20, 'x') + "\"\n\"KSPLOG\"=\"1\"\n";
    EXPECT_EQ(regfile::FindInBytes(huge, kSdk, u"KSPDIR").outcome, regfile::Outcome::kUnreadable);
    EXPECT_EQ(regfile::FindInBytes(huge, kSdk, u"KSPLOG").outcome, regfile::Outcome::kFound);

    std::string many = header;
    for (int i = 0; i < 200000; ++i)
        many += "[HKEY_LOCAL_MACHINE\\K" + std::to_string(i) + "]\n\"v\"=dword:00000001\n";
    many += std::string(RegistryFile::kSdkKey) + "\"KSPLOG\"=\"last\"\n";
    auto last = regfile::FindInBytes(many, kSdk, u"KSPLOG");
    ASSERT_EQ(last.outcome, regfile::Outcome::kFound);
    EXPECT_EQ(last.value.data.size(), 10u);

    std::string withNul = header + RegistryFile::kSdkKey + std::string("\"KSPLOG\"=\"1\0\"\n", 13);
    EXPECT_EQ(regfile::FindInBytes(withNul, kSdk, u"KSPLOG").outcome,
              regfile::Outcome::kUnreadable);
}

TEST(RegistryFile, ShippedConfigurationRegistersTheProviderWithLoggingOff) {
    setenv("QUELMKSP_REGISTRY", QUELMKSP_SOURCE_DIR "/config/quelmksp.reg", 1);
    EXPECT_EQ(ReadString(kSdk, u"KSPLOG"), u"00000000");
    EXPECT_EQ(ReadDword(kProviders, u"Default Key Length"), 2048u);
    char16_t aliases[64];
    uint32_t size = sizeof aliases;
    ASSERT_EQ(
        reg::GetValue(kProviders, u"Aliases", reg::kRestrictMultiString, nullptr, aliases, &size),
        reg::kSuccess);
    EXPECT_EQ(std::u16string(aliases, size / 2), std::u16string(u"Velmora KSP v4.5\0\0", 18));
    unsetenv("QUELMKSP_REGISTRY");
}

TEST(RegistryFileCache, AnEditOrReplacementIsSeenAtTheNextLookupAndNothingElseParses) {
    TempDir dir;
    const std::string path = dir / "cached.reg";
    auto write = [&](const std::string& value) {
        WriteFile(path,
                  "Windows Registry Editor Version 5.00\n\n"
                  "[HKEY_LOCAL_MACHINE\\Software\\Velmora Ltd.\\QUELM SDK]\n"
                  "\"KSPLOG\"=\"" +
                      value + "\"\n");
    };
    auto value = [](const regfile::Lookup& lookup) {
        if (lookup.outcome != regfile::Outcome::kFound) return std::string("<missing>");
        std::string text;
        for (size_t i = 0; i + 1 < lookup.value.data.size(); i += 2)
            if (lookup.value.data[i]) text.push_back(static_cast<char>(lookup.value.data[i]));
        return text;
    };
    // No settling time: the file's identity alone must tell every change apart.
    regfile::FileCache cache(std::chrono::nanoseconds(0));
    auto find = [&] { return value(cache.Find(path, kSdk, u"KSPLOG")); };

    write("1");
    EXPECT_EQ(find(), "1");
    EXPECT_EQ(find(), "1");
    EXPECT_EQ(cache.parses(), 1u);
    EXPECT_EQ(value(cache.Find(path, kSdk, u"KSPDIR")), "<missing>");
    EXPECT_EQ(cache.parses(), 2u) << "each value is looked up once";

    write("22");
    EXPECT_EQ(find(), "22") << "edited in place";
    const std::string replacement = dir / "replacement.reg";
    WriteFile(replacement,
              "Windows Registry Editor Version 5.00\n\n"
              "[HKEY_LOCAL_MACHINE\\Software\\Velmora Ltd.\\QUELM SDK]\n"
              "\"KSPLOG\"=\"33\"\n");
    std::filesystem::rename(replacement, path);
    EXPECT_EQ(find(), "33") << "replaced by a file of the same size";
    std::filesystem::remove(path);
    EXPECT_EQ(find(), "<missing>");
    write("4");
    EXPECT_EQ(find(), "4");
    EXPECT_EQ(value(cache.Find(dir / "other.reg", kSdk, u"KSPLOG")), "<missing>");
    EXPECT_EQ(find(), "4");

    // A file written moments ago may change again within the same tick of
    // the file clock, so with the usual settling time it is parsed anew.
    regfile::FileCache settling;
    write("5");
    EXPECT_EQ(value(settling.Find(path, kSdk, u"KSPLOG")), "5");
    write("6");
    EXPECT_EQ(value(settling.Find(path, kSdk, u"KSPLOG")), "6");
    EXPECT_EQ(settling.parses(), 2u);
}
