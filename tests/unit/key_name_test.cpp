#include <gtest/gtest.h>

#include "keys/key_context.h"
#include "platform/last_error.h"
#include "provider/handle_registry.h"
#include "support/fresh_provider_state.h"
#include "token/key_name.h"

using platform::WideString;

namespace {

class KeyNames : public ::testing::Test {
protected:
    TempDir dir_;
    FreshProviderState state_{dir_, "", "/nonexistent"};
};

}  // namespace

TEST_F(KeyNames, ConvertIdToKeyNameWidensBytesUpToTheFirstZero) {
    WideString name;
    const uint8_t id[] = {0x41, 0x42, 0x00, 0x43};
    ASSERT_EQ(ConvertIdToKeyName(id, 4, nullptr, 0, &name), 0);
    EXPECT_EQ(name, WIDE("AB"));
    const uint8_t binary[] = {0x01, 0xE9, 0xFF};
    ASSERT_EQ(ConvertIdToKeyName(binary, 3, nullptr, 0, &name), 0);
    EXPECT_EQ(name, WIDE("\x01\u00e9\u00ff"));
    const uint8_t label[] = {'l', 'b', 0, 'x'};
    ASSERT_EQ(ConvertIdToKeyName(nullptr, 0, label, 4, &name), 0);
    EXPECT_EQ(name, WIDE("lb"));

    EXPECT_EQ(ConvertIdToKeyName(id, 0, label, 4, &name), NTE_INVALID_PARAMETER);
    EXPECT_EQ(ConvertIdToKeyName(nullptr, 0, nullptr, 0, &name), NTE_INVALID_PARAMETER);
    EXPECT_NE(state_.Log().find("NTE_INVALID_PARAMETER: non-null CKA_ID with zero-length buffer "
                                "was provided.\n"),
              std::string::npos);
    EXPECT_NE(state_.Log().find("CKA_ID is not found. Checking label...\nNTE_INVALID_PARAMETER: "
                                "CKA_ID and label is not provided. Impossible to create valid key "
                                "name.\n"),
              std::string::npos);
}

TEST_F(KeyNames, HexToKeyNameReadsPairsAndReportsMalformedForms) {
    platform::SetLastError(0);
    EXPECT_EQ(HexToKeyName(WIDE("4142")), WIDE("AB"));
    EXPECT_EQ(HexToKeyName(WIDE("41004200")), WIDE("AB")) << "zero values add nothing";
    EXPECT_EQ(HexToKeyName(WIDE("4G")), WIDE("\x04")) << "a non-digit ends the number";
    EXPECT_EQ(HexToKeyName(WIDE("e9Ff")), WIDE("\u00e9\u00ff"));
    EXPECT_EQ(HexToKeyName(WIDE("")), WIDE(""));
    EXPECT_EQ(platform::GetLastError(), 0u);

    for (const platform::WideChar* bad : {WIDE("414"), WIDE("G1"), WIDE("41 2")}) {
        platform::SetLastError(0);
        EXPECT_EQ(HexToKeyName(bad), WIDE(""));
        EXPECT_EQ(platform::GetLastError(), static_cast<uint32_t>(NTE_INVALID_PARAMETER));
    }
}

TEST_F(KeyNames, AGivenNameSelectsEveryKeyNameItBeginsWith) {
    EXPECT_TRUE(SelectsKeyName(WIDE("ab"), WIDE("AB")));
    EXPECT_TRUE(SelectsKeyName(WIDE("ABC"), WIDE("AB")));
    EXPECT_TRUE(SelectsKeyName(WIDE("anything"), WIDE(""))) << "an empty name matches any";
    EXPECT_FALSE(SelectsKeyName(WIDE("A"), WIDE("AB")));
    EXPECT_FALSE(SelectsKeyName(WIDE("\u00e9"), WIDE("\u00c9"))) << "only A to Z fold";
    EXPECT_FALSE(SelectsKeyName(WIDE("[B"), WIDE("{B")));
}

TEST_F(KeyNames, NewKeyContextsHaveTheDefaultsAndBoundedNames) {
    QUELMKSP_KEY* key = nullptr;
    ASSERT_EQ(CreateNewKeyObject(nullptr, &key), 0);
    EXPECT_EQ(key->cbLength, 440u);
    EXPECT_EQ(key->dwMagic, 0x31415352u);
    EXPECT_EQ(key->KeyName(), nullptr);
    EXPECT_EQ(key->cbKeyName, 0u);
    EXPECT_EQ(key->dwAlgId, 1u);
    EXPECT_EQ(key->dwBitLength, 2048u);
    EXPECT_EQ(key->dwKeyUsage, 3u);
    EXPECT_EQ(key->dwExportPolicy, 2u);
    EXPECT_EQ(key->fFinished, 0u);
    EXPECT_NE(key->hAlgProvider, nullptr);
    const int owner = 0;
    auto handle = reinterpret_cast<NCRYPT_KEY_HANDLE>(key);
    EXPECT_EQ(KeyFromHandle(handle, &owner), nullptr) << "a record never handed out";
    g_pHandles->Add(key, HandleKind::kKey, &owner);
    EXPECT_EQ(KeyFromHandle(handle, &owner), key);
    EXPECT_EQ(KeyFromHandle(handle, nullptr), nullptr) << "another provider's key";
    g_pHandles->Remove(key, HandleKind::kKey);
    delete key;

    WideString longest(259, WIDE('k'));
    ASSERT_EQ(CreateNewKeyObject(longest.c_str(), &key), 0);
    EXPECT_EQ(key->cbKeyName, 260u);
    key->hPublicKey = 7;
    key->fFinished = 1;
    key->pbPrivateKeyBlob = platform::SecureBuffer<uint8_t>(16);
    key->cbPrivateKeyBlob = 16;
    EXPECT_EQ(DeleteKeyObject(*key), 0);
    EXPECT_EQ(key->KeyName(), nullptr);
    EXPECT_FALSE(key->pbPrivateKeyBlob);
    EXPECT_EQ(key->hPublicKey, 7u);
    EXPECT_EQ(key->fFinished, 1u);
    delete key;

    QUELMKSP_KEY* untouched = nullptr;
    WideString tooLong(260, WIDE('k'));
    EXPECT_EQ(CreateNewKeyObject(tooLong.c_str(), &untouched), NTE_INVALID_PARAMETER);
    EXPECT_EQ(untouched, nullptr);
    EXPECT_EQ(state_.LogLines().back(),
              "NTE_INVALID_PARAMETER: Length of key name exceeds MAX_PATH");

    EXPECT_EQ(NtStatusToSecurityStatus(static_cast<int32_t>(0xC000009A)), NTE_NO_MEMORY);
    EXPECT_EQ(NtStatusToSecurityStatus(static_cast<int32_t>(0xC000A000)), NTE_BAD_SIGNATURE);
    EXPECT_EQ(NtStatusToSecurityStatus(static_cast<int32_t>(0xC0000001)), NTE_INTERNAL_ERROR);
}
