// Handles that a careless or hostile caller passes back: freed, reused,
// forged or another provider's. Each is refused without the provider
// reading the memory behind it, which the AddressSanitizer build checks.
#include <gtest/gtest.h>

#include <cstdlib>

#include "support/pin_dialog_fixture.h"
#include "support/token_objects.h"

namespace {

class HandleChecks : public PinDialog {
protected:
    void SetUp() override {
        PinDialog::SetUp();
        TokenObjects token(*g_pCryptoki);
        token.Generate(BytesOf("k1"), BytesOf("k1"));
        token.Generate(BytesOf("k2"), BytesOf("k2"));
    }
    NCRYPT_KEY_HANDLE Open(NCRYPT_PROV_HANDLE provider, const platform::WideChar* name) {
        NCRYPT_KEY_HANDLE key = 0;
        EXPECT_EQ(table_->OpenKey(provider, &key, name, 0, 0), 0);
        return key;
    }
    SECURITY_STATUS Length(NCRYPT_PROV_HANDLE provider, NCRYPT_KEY_HANDLE key) {
        DWORD length = 0, result = 0;
        return table_->GetKeyProperty(provider, key, WIDE("Length"),
                                      reinterpret_cast<PBYTE>(&length), 4, &result, 0);
    }
};

}  // namespace

TEST_F(HandleChecks, FreedAndForeignKeysAreRefused) {
    NCRYPT_KEY_HANDLE first = Open(provider_, WIDE("k1"));
    ASSERT_EQ(table_->FreeKey(provider_, first), 0);
    EXPECT_EQ(Length(provider_, first), NTE_INVALID_HANDLE);
    EXPECT_EQ(table_->FreeKey(provider_, first), NTE_INVALID_HANDLE) << "no double free";

    // A new key may get the freed one's address; the old handle then names
    // the new key, which only its own provider may use.
    NCRYPT_PROV_HANDLE other = OpenAnother();
    NCRYPT_KEY_HANDLE foreign = Open(other, WIDE("k2"));
    EXPECT_EQ(Length(provider_, foreign), NTE_INVALID_HANDLE);
    Bytes hash(32, 1);
    DWORD length = 0;
    EXPECT_EQ(
        table_->SignHash(provider_, foreign, nullptr, hash.data(), 32, nullptr, 0, &length, 0),
        NTE_INVALID_HANDLE);
    EXPECT_EQ(table_->FreeKey(provider_, foreign), NTE_INVALID_HANDLE);
    EXPECT_EQ(Length(other, foreign), 0);

    QUELMKSP_KEY forged;
    forged.cbLength = QUELMKSP_KEY::kRecordLength;
    forged.dwMagic = QUELMKSP_KEY::kMagic;
    EXPECT_EQ(Length(provider_, reinterpret_cast<NCRYPT_KEY_HANDLE>(&forged)), NTE_INVALID_HANDLE)
        << "a record that looks right but was never handed out";

    // Keys left open go with their provider.
    ASSERT_EQ(table_->FreeProvider(other), 0);
    others_.clear();
    EXPECT_EQ(table_->FreeKey(other, foreign), NTE_INVALID_HANDLE);
    EXPECT_EQ(Length(other, foreign), NTE_INVALID_HANDLE);
}

TEST_F(HandleChecks, FreedProvidersBuffersAndEnumerationsAreRefused) {
    NCRYPT_PROV_HANDLE other = OpenAnother();
    ASSERT_EQ(table_->FreeProvider(other), 0);
    others_.clear();
    EXPECT_EQ(table_->FreeProvider(other), NTE_INVALID_HANDLE);
    NCRYPT_KEY_HANDLE key = 0;
    EXPECT_EQ(table_->OpenKey(other, &key, WIDE("k1"), 0, 0), NTE_INVALID_HANDLE);

    NCryptKeyName* name = nullptr;
    PVOID state = nullptr;
    ASSERT_EQ(table_->EnumKeys(provider_, nullptr, &name, &state, 0), 0);
    EXPECT_EQ(table_->FreeBuffer(name), 0);
    EXPECT_EQ(table_->FreeBuffer(name), 0) << "a second release frees nothing";
    EXPECT_EQ(table_->FreeBuffer(state), 0);
    EXPECT_EQ(table_->EnumKeys(provider_, nullptr, &name, &state, 0), NTE_INVALID_HANDLE)
        << "an enumeration state given back already";

    void* unknown = std::malloc(16);
    EXPECT_EQ(table_->FreeBuffer(unknown), 0) << "a block the provider never handed out";
    std::free(unknown);
    PVOID forged = &key;
    EXPECT_EQ(table_->EnumKeys(provider_, nullptr, &name, &forged, 0), NTE_INVALID_HANDLE);
}
