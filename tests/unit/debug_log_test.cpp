#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>

#include "diag/debug_class.h"
#include "diag/trace_frame.h"
#include "support/registry_file.h"

namespace {

class DebugLogTest : public ::testing::Test {
protected:
    std::string LogPath() const { return dir_ / "ksp.log"; }
    std::string Log() const { return ReadFile(LogPath()); }
    bool LogExists() const { return std::filesystem::exists(LogPath()); }

    TempDir dir_;
};

constexpr const char* kSdk = RegistryFile::kSdkKey;

}  // namespace

TEST_F(DebugLogTest, OnlyExactlyEightZerosSwitchLoggingOff) {
    struct Case {
        std::string settings;
        bool enabled;
    };
    const std::string dir = "\"KSPDIR\"=\"" + LogPath() + "\"\n";
    const Case cases[] = {
        {std::string(kSdk) + "\"KSPLOG\"=\"00000000\"\n" + dir, false},
        {std::string(kSdk) + "\"KSPLOG\"=\"0\"\n" + dir, true},
        {std::string(kSdk) + "\"KSPLOG\"=\"1\"\n" + dir, true},
        {std::string(kSdk) + "\"KSPLOG\"=\"000000000\"\n" + dir, true},
        {std::string(kSdk) + "\"KSPLOG\"=\"1\"\n", false},
        {std::string(kSdk) + dir, false},
        {std::string(kSdk) + "\"KSPLOG\"=\"0123456789abcdef\"\n" + dir, false},  // over 15
        {std::string(kSdk) + "\"KSPLOG\"=dword:00000001\n" + dir, false},
    };
    for (const Case& c : cases) {
        std::filesystem::remove(LogPath());
        RegistryFile registry(dir_, c.settings);
        DebugClass log(false);
        log.WriteLine("line");
        EXPECT_EQ(log.enabled(), c.enabled) << c.settings;
        EXPECT_EQ(LogExists(), c.enabled) << c.settings;
    }
}

TEST_F(DebugLogTest, WritersFormatTheirValues) {
    RegistryFile registry(dir_, RegistryFile::LoggingTo(LogPath()));
    DebugClass log(false);
    log.WriteText("Label : ", "text");
    log.WriteHex("hKey : ", Low32(reinterpret_cast<void*>(0x123456789ABCDEF0ull)));
    log.WriteHex("dwFlags : ", 0x40);
    log.WriteWide("pszName : ", u"Velmora KSP v4.5");
    log.WriteWide("pszScope : ", nullptr);
    log.WriteWide("Wide : ", u"\u00e9\u4e2d");
    log.WriteBytes("Empty : ", "x", 0);
    log.WriteBytes("Null : ", nullptr, 4);
    const unsigned char bytes[] = {0x00, 0x0A, 0xFF};
    log.WriteBytes("Bytes : ", bytes, 3);
    EXPECT_EQ(Log(),
              "Label : text\n"
              "hKey : 0x9ABCDEF0\n"
              "dwFlags : 0x00000040\n"
              "pszName : Velmora KSP v4.5\n"
              "pszScope : NULL\n"
              "Wide : \xE9?\n"
              "Empty : NULL\n"
              "Null : NULL\n"
              "Bytes : 00 0A FF \n");

    std::filesystem::remove(LogPath());
    std::string big(600, '\x5A');
    log.WriteBytes("", big.data(), 600);
    std::string expected;
    for (int i = 0; i < 500; ++i) expected += "5A ";
    EXPECT_EQ(Log(), expected + "\n") << "a dump stops at 500 bytes";

    std::filesystem::remove(LogPath());
    log.WriteWide("", std::u16string(600, u'w').c_str());
    EXPECT_EQ(Log(), std::string(511, 'w') + "\n");
}

TEST_F(DebugLogTest, BannerOpensTheFileAndADeletedFileComesBackWithoutIt) {
    RegistryFile registry(dir_, RegistryFile::LoggingTo(LogPath()));
    DebugClass opLog(true);
    std::regex banner(
        "\n\n\\*{66} LOG START - [A-Z][a-z]{2} [A-Z][a-z]{2} [ 0-9]\\d \\d\\d:\\d\\d:\\d\\d "
        "\\d{4}\n\n");
    EXPECT_TRUE(std::regex_match(Log(), banner)) << Log();

    DebugClass tokenLog(false);
    EXPECT_EQ(Log().find("LOG START", 70), std::string::npos) << "only one banner";

    std::filesystem::remove(LogPath());
    opLog.WriteLine("after");
    EXPECT_EQ(Log(), "after\n");
}

TEST_F(DebugLogTest, UnwritableLogPathIsIgnoredQuietly) {
    for (const std::string& path : {dir_.path().string(), dir_ / "missing/dir/ksp.log"}) {
        RegistryFile registry(dir_, RegistryFile::LoggingTo(path));
        DebugClass log(true);
        EXPECT_TRUE(log.enabled());
        log.WriteLine("nowhere");
        log.WriteBytes("", "abc", 3);
    }
    EXPECT_FALSE(std::filesystem::exists(dir_ / "missing"));
}

TEST_F(DebugLogTest, TraceFrameAlignsArgumentsAndAlwaysWritesTheExit) {
    RegistryFile registry(dir_, RegistryFile::LoggingTo(LogPath()));
    DebugClass log(false);
    {
        TraceFrame frame(log, "QUELMKSPSignHash",
                         {{"hProvider", uintptr_t{0x1234}},
                          {"pPaddingInfo", static_cast<void*>(nullptr)},
                          {"pszName", u"key"},
                          {"dwFlags", 0x40u}},
                         -1);
        frame.Line("progress");
        frame.Fail(static_cast<int32_t>(0x80090009u), "dwFlags contains invalid value");
    }
    try {
        TraceFrame frame(log, "Thrower", {}, static_cast<int32_t>(0x8009002Du));
        throw 1;
    } catch (int) {
    }
    const std::string rule(66, '=');
    EXPECT_EQ(Log(), rule +
                         "\n"
                         "QUELMKSPSignHash - Entry\n"
                         "hProvider    : 0x00001234\n"
                         "pPaddingInfo : 0x00000000\n"
                         "pszName      : key\n"
                         "dwFlags      : 0x00000040\n"
                         "progress\n"
                         "NTE_BAD_FLAGS: dwFlags contains invalid value\n"
                         "QUELMKSPSignHash - Exit: 0x80090009\n" +
                         rule + "\n\n\n" + rule +
                         "\n"
                         "Thrower - Entry\n"
                         "Thrower - Exit: 0x8009002D\n" +
                         rule + "\n\n\n");
}
