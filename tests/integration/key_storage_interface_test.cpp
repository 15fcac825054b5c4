#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "support/provider_library.h"
#include "support/registry_file.h"

namespace {

std::string Hex(const void* pointer) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X",
                  static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer)));
    return text;
}

}  // namespace

TEST(KeyStorageInterface, HandsOutTheTableOfTheExportedOperationsInOrder) {
    ProviderLibrary provider(MOCK_PKCS11_PATH);
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = provider.Table();
    EXPECT_EQ(table->Version.MajorVersion, 1);
    EXPECT_EQ(table->Version.MinorVersion, 0);

    const char* names[] = {"OpenProvider",
                           "OpenKey",
                           "CreatePersistedKey",
                           "GetProviderProperty",
                           "GetKeyProperty",
                           "SetProviderProperty",
                           "SetKeyProperty",
                           "FinalizeKey",
                           "DeleteKey",
                           "FreeProvider",
                           "FreeKey",
                           "FreeBuffer",
                           "Encrypt",
                           "Decrypt",
                           "IsAlgSupported",
                           "EnumAlgorithms",
                           "EnumKeys",
                           "ImportKey",
                           "ExportKey",
                           "SignHash",
                           "VerifySignature",
                           "PromptUser",
                           "NotifyChangeKey",
                           "SecretAgreement",
                           "DeriveKey",
                           "FreeSecret"};
    auto* entries = reinterpret_cast<void**>(&table->OpenProvider);
    for (size_t i = 0; i < std::size(names); ++i) {
        void* exported = provider.Symbol((std::string("QUELMKSP") + names[i]).c_str());
        ASSERT_NE(exported, nullptr) << names[i];
        EXPECT_EQ(entries[i], exported) << names[i];
    }
}

TEST(KeyStorageInterface, AcceptsOnlyItsExactNameAndNeedsATablePointer) {
    ProviderLibrary provider(MOCK_PKCS11_PATH);
    auto entry =
        reinterpret_cast<GetKeyStorageInterfaceFn>(provider.Symbol("GetKeyStorageInterface"));
    auto* untouched = reinterpret_cast<NCRYPT_KEY_STORAGE_FUNCTION_TABLE*>(0x1);
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = untouched;

    EXPECT_EQ(entry(u"Other", nullptr, 0), NTE_INTERNAL_ERROR) << "the pointer is checked first";
    for (const char16_t* name : {u"velmora KSP v4.5", u"Velmora KSP v4.5 ", u"Velmora KSP v4.", u"",
                                 static_cast<const char16_t*>(nullptr)}) {
        EXPECT_EQ(entry(name, &table, 0), STATUS_INVALID_PARAMETER);
        EXPECT_EQ(table, untouched);
    }
    EXPECT_EQ(entry(u"Velmora KSP v4.5", &table, 0xFFFFFFFF), 0) << "flags are ignored";
    EXPECT_NE(table, untouched);
}

TEST(KeyStorageInterface, WritesTheBannerAndOneFramePerCallWhenLoggingIsOn) {
    TempDir dir;
    RegistryFile registry(dir, RegistryFile::LoggingTo(dir / "ksp.log"));
    ProviderLibrary provider(MOCK_PKCS11_PATH);
    auto entry =
        reinterpret_cast<GetKeyStorageInterfaceFn>(provider.Symbol("GetKeyStorageInterface"));
    NCRYPT_KEY_STORAGE_FUNCTION_TABLE* table = nullptr;
    ASSERT_EQ(entry(u"Velmora KSP v4.5", &table, 7), 0);
    EXPECT_EQ(table->FreeBuffer(nullptr), 0);

    std::string log = ReadFile(dir / "ksp.log");
    std::smatch banner;
    ASSERT_TRUE(std::regex_search(log, banner, std::regex("^\n\n\\*{66} LOG START - .{24}\n\n")))
        << log;
    const std::string rule(66, '=');
    EXPECT_EQ(banner.suffix().str(),
              "PKCS#11 library loaded successfully\n"
              "Get Function List success\n"
              "Load Function List success\n"
              "PKCS#11 library function list retrieved\n"
              "PKCS#11 library initialized successfully\n" +
                  rule +
                  "\n"
                  "GetKeyStorageInterface - Entry\n"
                  "pszProviderName : Velmora KSP v4.5\n"
                  "ppFunctionTable : " +
                  Hex(&table) +
                  "\n"
                  "dwFlags         : 0x00000007\n"
                  "Function table retrieved - Velmora KSP 4, 5, 0, 0 x86 (Release Build)\n"
                  "GetKeyStorageInterface - Exit: 0x00000000\n" +
                  rule + "\n\n\n" + rule +
                  "\n"
                  "QUELMKSPFreeBuffer - Entry\n"
                  "pvInput : 0x00000000\n"
                  "QUELMKSPFreeBuffer - Exit: 0x00000000\n" +
                  rule + "\n\n\n");
}
