#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "keys/key_context.h"
#include "support/pin_dialog_fixture.h"
#include "support/token_objects.h"

namespace {

// A provider whose installation makes 1024-bit keys, and a PIN dialog that
// types the right PIN when it is shown.
class KeyCreation : public PinDialog {
protected:
    void SetUp() override {
        extraRegistry_ = "\"Default Key Length\"=dword:00000400\n";
        PinDialog::SetUp();
    }

    SECURITY_STATUS Create(const platform::WideChar* name, NCRYPT_KEY_HANDLE* key,
                           DWORD legacyKeySpec = 0, DWORD flags = 0) {
        return table_->CreatePersistedKey(provider_, key, WIDE("RSA"), name, legacyKeySpec, flags);
    }
    SECURITY_STATUS Finalize(NCRYPT_KEY_HANDLE key, DWORD flags = 0) {
        NewScript().Type(WIDE("1234")).ClickOk();
        return table_->FinalizeKey(provider_, key, flags);
    }
    void Free(NCRYPT_KEY_HANDLE key) { EXPECT_EQ(table_->FreeKey(provider_, key), 0); }

    bool Logged(const std::string& line) const {
        std::vector<std::string> lines = LogLines();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }
};

class KeyCreationWithoutDefaultLength : public PinDialog {};

}  // namespace

TEST_F(KeyCreation, CreatePersistedKeyChecksItsArgumentsInOrder) {
    NCRYPT_KEY_HANDLE key = 0;
    EXPECT_EQ(table_->CreatePersistedKey(0, &key, nullptr, nullptr, 9, 0x100), NTE_INVALID_HANDLE);
    EXPECT_TRUE(Logged("NTE_INVALID_HANDLE: pProvider is NULL"));
    EXPECT_EQ(table_->CreatePersistedKey(provider_, nullptr, nullptr, nullptr, 9, 0x100),
              NTE_INVALID_PARAMETER);
    EXPECT_TRUE(Logged("NTE_INVALID_PARAMETER: phKey is NULL"));
    EXPECT_EQ(table_->CreatePersistedKey(provider_, &key, nullptr, nullptr, 9, 0x100),
              NTE_INVALID_PARAMETER);
    EXPECT_TRUE(Logged("NTE_INVALID_PARAMETER: pszAlgID is NULL"));
    EXPECT_EQ(table_->CreatePersistedKey(provider_, &key, WIDE("rsa"), nullptr, 9, 0x100),
              NTE_BAD_FLAGS);
    EXPECT_TRUE(
        Logged("NTE_BAD_FLAGS: Only NCRYPT_MACHINE_KEY_FLAG and NCRYPT_OVERWIRTE_KEY_FLAG is "
               "acceptable."));
    for (const platform::WideChar* algorithm : {WIDE("rsa"), WIDE("RSA_SIGN"), WIDE("")})
        EXPECT_EQ(table_->CreatePersistedKey(provider_, &key, algorithm, nullptr, 9, 0),
                  NTE_NOT_SUPPORTED);
    EXPECT_TRUE(Logged("NTE_NOT_SUPPORTED: This KSP only supports NCRYPT_RSA_ALGORITHM"));
    EXPECT_EQ(Create(nullptr, &key, 3), NTE_INVALID_PARAMETER);
    EXPECT_TRUE(Logged("NTE_INVALID_PARAMETER: Invalid dwLegacyKeySpec value"));
    EXPECT_EQ(key, 0u) << "no key context before the checks pass";

    const uint32_t algIds[] = {0, 0xA400, 0x2400};
    for (DWORD spec = 0; spec <= 2; ++spec) {
        ClearLog();
        ASSERT_EQ(Create(nullptr, &key, spec, NCRYPT_SILENT_FLAG | NCRYPT_MACHINE_KEY_FLAG), 0);
        QUELMKSP_KEY& record = *KeyRecord(key);
        EXPECT_EQ(record.dwAlgId, algIds[spec]);
        EXPECT_EQ(record.dwBitLength, 1024u) << "the registry's default length";
        EXPECT_EQ(record.fFinished, 0u);
        std::vector<std::string> lines = LogLines();
        ASSERT_GE(lines.size(), 2u);
        EXPECT_EQ(lines[lines.size() - 2], "Key handle: " + HexValue(Low32(key)));
        EXPECT_EQ(lines.back(), "QUELMKSPCreatePersistedKey - Exit: 0x00000000");
        Free(key);
    }
    EXPECT_EQ(script_->runs, 0) << "creation alone asks for no PIN";
}

TEST_F(KeyCreation, FinalizeGeneratesThePairUnderARandomIdAndTheNameAsLabel) {
    NCRYPT_KEY_HANDLE key = 0, second = 0;
    ASSERT_EQ(Create(WIDE("enrolment"), &key), 0);
    ASSERT_EQ(Finalize(key), 0);
    EXPECT_EQ(script_->runs, 1);
    EXPECT_TRUE(Logged("Generating key pair"));
    EXPECT_TRUE(Logged("Bit length: 0x00000400"));
    QUELMKSP_KEY& record = *KeyRecord(key);
    EXPECT_EQ(record.fFinished, 1u);

    ASSERT_EQ(Create(WIDE("enrolment-2"), &second), 0);
    DWORD bits = 2048;
    ASSERT_EQ(table_->SetKeyProperty(provider_, second, WIDE("Length"),
                                     reinterpret_cast<PBYTE>(&bits), 4, 0),
              0);
    ASSERT_EQ(Finalize(second), 0);

    TokenObjects token(*g_pCryptoki);
    std::string label = "enrolment";
    std::vector<CK_OBJECT_HANDLE> publics = token.Find(CKO_PUBLIC_KEY, &label);
    std::vector<CK_OBJECT_HANDLE> privates = token.Find(CKO_PRIVATE_KEY, &label);
    ASSERT_EQ(publics.size(), 1u);
    ASSERT_EQ(privates.size(), 1u);
    EXPECT_EQ(publics[0], record.hPublicKey);
    EXPECT_EQ(privates[0], record.hPrivateKey);
    Bytes id = token.Attribute(publics[0], CKA_ID);
    EXPECT_EQ(id.size(), 20u);
    EXPECT_EQ(std::count(id.begin(), id.end(), 0), 0) << "no zero byte cuts the key's name";
    EXPECT_EQ(token.Attribute(privates[0], CKA_ID), id);
    EXPECT_EQ(token.Attribute(publics[0], CKA_MODULUS).size(), 128u);
    EXPECT_EQ(token.Attribute(publics[0], CKA_PUBLIC_EXPONENT), (Bytes{1, 0, 1}));
    EXPECT_TRUE(token.BoolAttribute(publics[0], CKA_TOKEN));
    EXPECT_TRUE(token.BoolAttribute(privates[0], CKA_SIGN));
    EXPECT_TRUE(token.BoolAttribute(privates[0], CKA_DECRYPT));
    EXPECT_TRUE(token.BoolAttribute(publics[0], CKA_ENCRYPT));

    QUELMKSP_KEY& longer = *KeyRecord(second);
    EXPECT_EQ(token.Attribute(longer.hPublicKey, CKA_MODULUS).size(), 256u) << "\"Length\" wins";
    Bytes otherId = token.Attribute(longer.hPublicKey, CKA_ID);
    EXPECT_EQ(otherId.size(), 20u);
    EXPECT_NE(otherId, id);

    // The key is listed, and opened, under its identifier, not its label.
    NCRYPT_KEY_HANDLE opened = 0;
    platform::WideString listedName(id.begin(), id.end());
    ASSERT_EQ(table_->OpenKey(provider_, &opened, listedName.c_str(), 0, 0), 0);
    EXPECT_EQ(KeyRecord(opened)->hPrivateKey, record.hPrivateKey);
    Free(opened);

    int dialogs = script_->runs;
    EXPECT_EQ(table_->FinalizeKey(provider_, key, 0), NTE_BAD_KEY_STATE);
    EXPECT_EQ(script_->runs, dialogs) << "a finalized key asks for no PIN";
    Free(key);
    Free(second);
}

TEST_F(KeyCreation, AnExistingNameIsRefusedUnlessItIsOverwritten) {
    TokenObjects token(*g_pCryptoki);
    TokenObjects::Pair old = token.Generate(BytesOf("old-id"), BytesOf("old-id"), "taken");
    TokenObjects::Pair half = token.Generate(BytesOf("half"), BytesOf("half"), "half");
    token.Destroy(half.privateKey);

    NCRYPT_KEY_HANDLE key = 0;
    EXPECT_EQ(Create(WIDE("taken"), &key), NTE_EXISTS);
    EXPECT_TRUE(Logged("Validating key file existence"));
    EXPECT_TRUE(Logged("NTE_EXISTS: A key with the same name already exists"));

    ASSERT_EQ(Create(WIDE("half"), &key), 0) << "a lone public half is no key";
    EXPECT_EQ(KeyRecord(key)->hPublicKey, 0u);
    EXPECT_EQ(table_->DeleteKey(provider_, key, 0), 0);
    EXPECT_EQ(token.Find(CKO_PUBLIC_KEY).size(), 2u) << "the lone half was not deleted";
    Free(key);

    ASSERT_EQ(Create(WIDE("taken"), &key, 0, NCRYPT_OVERWRITE_KEY_FLAG), 0);
    EXPECT_TRUE(Logged("NTE_EXISTS: A key with same name exists and will be overwritten"));
    EXPECT_EQ(token.Find(CKO_PUBLIC_KEY).size(), 2u) << "nothing destroyed before finalization";
    ClearLog();
    ASSERT_EQ(Finalize(key), 0);
    EXPECT_TRUE(Logged("Overwrite flag is set."));
    std::string label = "taken";
    std::vector<CK_OBJECT_HANDLE> publics = token.Find(CKO_PUBLIC_KEY, &label);
    ASSERT_EQ(publics.size(), 1u);
    EXPECT_NE(token.Attribute(publics[0], CKA_ID), BytesOf("old-id"));
    EXPECT_EQ(token.Find(CKO_PRIVATE_KEY, &label).size(), 1u);
    (void)old;
    Free(key);
}

TEST_F(KeyCreation, AKeyWithoutANameLivesInTheSessionOnly) {
    NCRYPT_KEY_HANDLE key = 0;
    ASSERT_EQ(Create(nullptr, &key), 0);
    EXPECT_FALSE(Logged("Validating key file existence"));
    ASSERT_EQ(Finalize(key), 0);
    QUELMKSP_KEY& record = *KeyRecord(key);
    for (CK_OBJECT_HANDLE object : {record.hPublicKey, record.hPrivateKey}) {
        EXPECT_EQ(SessionAttribute(object, CKA_TOKEN), Bytes{CK_FALSE});
        EXPECT_TRUE(SessionAttribute(object, CKA_LABEL).empty());
    }
    Free(key);
}

TEST_F(KeyCreation, FinalizeRefusesBeforeAskingForThePin) {
    NCRYPT_KEY_HANDLE key = 0;
    ASSERT_EQ(Create(WIDE("k"), &key), 0);
    EXPECT_EQ(table_->FinalizeKey(0, key, 0), NTE_INVALID_HANDLE);
    EXPECT_EQ(table_->FinalizeKey(provider_, 0, 0), NTE_INVALID_HANDLE);
    EXPECT_TRUE(Logged("NTE_INVALID_HANDLE: pKey is NULL"));
    EXPECT_EQ(table_->FinalizeKey(provider_, key, NCRYPT_OVERWRITE_KEY_FLAG), NTE_BAD_FLAGS);
    EXPECT_TRUE(Logged(
        "NTE_BAD_FLAGS: Only NCRYPT_NO_KEY_VALIDATION, NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG, "
        "and NCRYPT_SILENT_FLAG are acceptable flags."));
    EXPECT_EQ(script_->runs, 0);

    NewScript().ClickCancel();
    EXPECT_EQ(table_->FinalizeKey(provider_, key, NCRYPT_SILENT_FLAG | NCRYPT_NO_KEY_VALIDATION),
              SCARD_W_CANCELLED_BY_USER);
    EXPECT_TRUE(Logged("Failed to login. Operation aborted"));
    EXPECT_EQ(KeyRecord(key)->fFinished, 0u) << "a failed finalization can be tried again";
    EXPECT_EQ(Finalize(key), 0);
    Free(key);

    // A label is never cut: a shortened one could name another key.
    platform::WideString longName(63, u'n');
    ASSERT_EQ(Create(longName.c_str(), &key), 0);
    NewScript();
    EXPECT_EQ(table_->FinalizeKey(provider_, key, 0), NTE_INVALID_PARAMETER);
    EXPECT_EQ(script_->runs, 0);
    Free(key);
}

TEST_F(KeyCreationWithoutDefaultLength, CreationFailsWithoutTheRegistryValue) {
    NCRYPT_KEY_HANDLE key = 0;
    EXPECT_EQ(table_->CreatePersistedKey(provider_, &key, WIDE("RSA"), WIDE("k"), 0, 0),
              NTE_INTERNAL_ERROR);
    std::vector<std::string> lines = LogLines();
    EXPECT_NE(
        std::find(lines.begin(), lines.end(), "NTE_INTERNAL_ERROR: Failed to get registry key"),
        lines.end());
    EXPECT_EQ(key, 0u);
}
