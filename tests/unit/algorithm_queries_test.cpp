#include <gtest/gtest.h>

#include "provider/handle_registry.h"
#include "provider/ncrypt_provider.h"
#include "provider/provider_context.h"
#include "support/fresh_provider_state.h"

namespace {

class AlgorithmQueries : public ::testing::Test {
protected:
    NCRYPT_PROV_HANDLE Handle() const {
        return reinterpret_cast<NCRYPT_PROV_HANDLE>(record_.get());
    }

    // The lines between the entry line and the exit line.
    std::vector<std::string> Body() const {
        auto lines = state_.LogLines();
        return std::vector<std::string>(lines.begin() + 1, lines.end() - 1);
    }

    TempDir dir_;
    FreshProviderState state_{dir_, "", "/nonexistent"};
    ProviderRecord record_ = AllocateProviderRecord(u"Velmora KSP v4.5");
    // Handed out as OpenProvider would, so that the handle checks accept it.
    struct Live {
        explicit Live(void* record) : record_(record) {
            g_pHandles->Add(record_, HandleKind::kProvider);
        }
        ~Live() { g_pHandles->Remove(record_, HandleKind::kProvider); }
        void* record_;
    } live_{record_.get()};
};

}  // namespace

TEST_F(AlgorithmQueries, EnumAlgorithmsOffersRsaForEveryClassButRngAndUnknownBits) {
    struct Case {
        DWORD algClass;
        SECURITY_STATUS status;
    };
    for (Case c : {Case{0, 0}, Case{NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION, 0},
                   Case{NCRYPT_SIGNATURE_OPERATION, 0}, Case{NCRYPT_HASH_OPERATION, 0},
                   Case{NCRYPT_CIPHER_OPERATION, 0}, Case{NCRYPT_SECRET_AGREEMENT_OPERATION, 0},
                   Case{NCRYPT_RNG_OPERATION | NCRYPT_HASH_OPERATION, 0},
                   Case{NCRYPT_RNG_OPERATION, NTE_NOT_SUPPORTED}, Case{0x40, NTE_NOT_SUPPORTED}}) {
        DWORD count = 0;
        NCryptAlgorithmName* list = nullptr;
        ASSERT_EQ(QUELMKSPEnumAlgorithms(Handle(), c.algClass, &count, &list, 0), c.status)
            << c.algClass;
        if (c.status != 0) {
            EXPECT_EQ(list, nullptr);
            continue;
        }
        ASSERT_EQ(count, 1u);
        EXPECT_EQ(std::u16string(list->pszName), u"RSA");
        EXPECT_EQ(reinterpret_cast<void*>(list->pszName), reinterpret_cast<void*>(list + 1))
            << "the name lives in the same block";
        EXPECT_EQ(list->dwClass, 3u);
        EXPECT_EQ(list->dwAlgOperations, 0x14u);
        EXPECT_EQ(list->dwFlags, 0u);
        EXPECT_EQ(QUELMKSPFreeBuffer(list), 0);
    }

    state_.ClearLog();
    DWORD count = 0;
    NCryptAlgorithmName* list = nullptr;
    EXPECT_EQ(QUELMKSPEnumAlgorithms(Handle(), 0x3F, &count, &list, 0), 0);
    QUELMKSPFreeBuffer(list);
    auto lines = state_.LogLines();
    EXPECT_EQ(
        std::vector<std::string>(lines.begin() + 1, lines.begin() + 12),
        (std::vector<std::string>{
            "dwAlgClass  : 0x0000003F", "pdwAlgCount : " + HexValue(Low32(&count)),
            "ppAlgList   : " + HexValue(Low32(&list)), "dwFlags     : 0x00000000",
            "Validating Provider Handle...", "dwAlgClass is NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION",
            "dwAlgClass is NCRYPT_SIGNATURE_OPERATION", "dwAlgClass is NCRYPT_HASH_OPERATION",
            "dwAlgClass is NCRYPT_SECRET_AGREEMENT_OPERATION",
            "dwAlgClass is NCRYPT_CIPHER_OPERATION", "dwAlgClass is NCRYPT_RNG_OPERATION"}));
}

TEST_F(AlgorithmQueries, EnumAlgorithmsChecksHandlePointersAndFlagsInOrder) {
    DWORD count = 0;
    NCryptAlgorithmName* list = nullptr;
    struct Case {
        NCRYPT_PROV_HANDLE handle;
        DWORD* count;
        NCryptAlgorithmName** list;
        DWORD flags;
        SECURITY_STATUS status;
        const char* line;
    };
    for (const Case& c :
         {Case{0, nullptr, nullptr, 1, NTE_INVALID_HANDLE,
               "NTE_INVALID_HANDLE: pProvider is NULL."},
          Case{Handle(), nullptr, nullptr, 1, NTE_INVALID_PARAMETER,
               "NTE_INVALID_PARAMETER: pdwAlgCount is NULL."},
          Case{Handle(), &count, nullptr, 1, NTE_INVALID_PARAMETER,
               "NTE_INVALID_PARAMETER: ppAlgList is NULL."},
          Case{Handle(), &count, &list, 0x41, NTE_BAD_FLAGS,
               "NTE_BAD_FLAGS: Only NCRYPT_SILENT_FLAG or 0 is an acceptable value."}}) {
        state_.ClearLog();
        EXPECT_EQ(QUELMKSPEnumAlgorithms(c.handle, 0, c.count, c.list, c.flags), c.status);
        EXPECT_EQ(Body().back(), c.line);
    }
    EXPECT_EQ(QUELMKSPEnumAlgorithms(Handle(), 0, &count, &list, NCRYPT_SILENT_FLAG), 0);
    EXPECT_EQ(QUELMKSPFreeBuffer(list), 0);
    EXPECT_EQ(QUELMKSPFreeBuffer(nullptr), 0);
}

TEST_F(AlgorithmQueries, IsAlgSupportedKnowsRsaAndItsHashesByExactName) {
    for (const char16_t* name :
         {u"RSA", u"RSA_SIGN", u"MD5", u"SHA1", u"SHA256", u"SHA384", u"SHA512"}) {
        EXPECT_EQ(QUELMKSPIsAlgSupported(Handle(), name, 0), 0);
        std::u16string lower(name);
        for (char16_t& c : lower) c = (c >= u'A' && c <= u'Z') ? c + 32 : c;
        EXPECT_EQ(QUELMKSPIsAlgSupported(Handle(), lower.c_str(), 0), NTE_NOT_SUPPORTED);
    }
    state_.ClearLog();
    EXPECT_EQ(QUELMKSPIsAlgSupported(Handle(), u"ECDSA_P256", NCRYPT_SILENT_FLAG),
              NTE_NOT_SUPPORTED);
    EXPECT_EQ(Body().back(), "NTE_NOT_SUPPORTED: ECDSA_P256 is not a supported algorithm");

    struct Case {
        NCRYPT_PROV_HANDLE handle;
        const char16_t* name;
        DWORD flags;
        SECURITY_STATUS status;
        const char* line;
    };
    for (const Case& c :
         {Case{0, nullptr, 1, NTE_INVALID_HANDLE, "NTE_INVALID_HANDLE: pProvider is NULL"},
          Case{Handle(), nullptr, 1, NTE_INVALID_PARAMETER,
               "NTE_INVALID_PARAMETER: pszAlgId cannot be NULL"},
          Case{Handle(), u"RSA", 1, NTE_BAD_FLAGS,
               "NTE_BAD_FLAGS: Only NCRYPT_SILENT_FLAG is an acceptable flag"}}) {
        state_.ClearLog();
        EXPECT_EQ(QUELMKSPIsAlgSupported(c.handle, c.name, c.flags), c.status);
        EXPECT_EQ(Body().back(), c.line);
    }
}

TEST_F(AlgorithmQueries, UnsupportedOperationsAnswerWithTheirOwnLines) {
    const std::string rule(66, '=');
    auto expectLog = [&](SECURITY_STATUS status, const std::string& lines) {
        EXPECT_EQ(status, NTE_NOT_SUPPORTED);
        EXPECT_EQ(state_.Log(), rule + "\n" + lines + rule + "\n\n\n");
        state_.ClearLog();
    };
    state_.ClearLog();
    expectLog(QUELMKSPDeriveKey(0, 0, nullptr, nullptr, nullptr, 0, nullptr, 0),
              "QUELMKSPDeriveKey - Entry\n"
              "NTE_NOT_SUPPORTED: This version of QUELM KSP does not support key derivation.\n"
              "QUELMKSPDeriveKey - Exit: 0x80090029\n");
    expectLog(QUELMKSPSecretAgreement(0, 0, 0, nullptr, 0),
              "QUELMKSPSecretAgreement - Entry\n"
              "NTE_NOT_SUPPORTED: SecretAgreement is not supported\n"
              "QUELMKSPSecretAgreement - Exit\n");
    expectLog(QUELMKSPNotifyChangeKey(0, nullptr, 0),
              "QUELMKSPNotifyChangeKey - Entry\n"
              "NTE_NOT_SUPPORTED: NotifyChangeKey is not supported\n"
              "QUELMKSPNotifyChangeKey - Exit: 0x80090029\n");
    expectLog(QUELMKSPPromptUser(0, 0, nullptr, 0),
              "QUELMKSPPromptUser\n"
              "NTE_NOT_SUPPORTED: PromptUser is not supported\n"
              "QUELMKSPPromptUser\n");
    expectLog(QUELMKSPFreeSecret(0, 0),
              "QUELMKSPFreeSecret - Entry\n"
              "NTE_NOT_SUPPORTED: FreeSecret is not supported.\n"
              "QUELMKSPFreeSecret - Exit: 0x80090029\n");
}

TEST_F(AlgorithmQueries, OnlyOpenProviderPromptUserAndFreeSecretKeepTheProviderCache) {
    auto cacheSurvives = [&](auto call) {
        g_pProviderCache->fSet = 1;
        call();
        return g_pProviderCache->fSet == 1;
    };
    EXPECT_TRUE(cacheSurvives([] { QUELMKSPPromptUser(0, 0, nullptr, 0); }));
    EXPECT_TRUE(cacheSurvives([] { QUELMKSPFreeSecret(0, 0); }));
    EXPECT_TRUE(cacheSurvives([] { QUELMKSPOpenProvider(nullptr, nullptr, 0); }));
    EXPECT_FALSE(cacheSurvives([] { QUELMKSPFreeBuffer(nullptr); }));
    EXPECT_FALSE(
        cacheSurvives([] { QUELMKSPDeriveKey(0, 0, nullptr, nullptr, nullptr, 0, nullptr, 0); }));
    EXPECT_FALSE(cacheSurvives([&] { QUELMKSPIsAlgSupported(Handle(), u"RSA", 0); }));
    EXPECT_FALSE(cacheSurvives([] { QUELMKSPFreeProvider(0); }));
    EXPECT_FALSE(
        cacheSurvives([] { QUELMKSPSignHash(0, 0, nullptr, nullptr, 0, nullptr, 0, nullptr, 0); }));
}
