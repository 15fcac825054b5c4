#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "keys/key_context.h"
#include "support/pin_dialog_fixture.h"
#include "support/test_certificates.h"
#include "support/token_objects.h"

namespace {

// A provider on a token with the 1024-bit pair "k1", opened.
class ExportAndDelete : public PinDialog {
protected:
    void SetUp() override {
        extraRegistry_ = "\"Default Key Length\"=dword:00000800\n";
        PinDialog::SetUp();
        {
            TokenObjects token(*g_pCryptoki);
            token.Generate(BytesOf("k1"), BytesOf("k1"));
        }
        ASSERT_EQ(table_->OpenKey(provider_, &key_, WIDE("k1"), 0, 0), 0);
    }
    void TearDown() override {
        if (key_) {
            EXPECT_EQ(table_->FreeKey(provider_, key_), 0);
        }
        PinDialog::TearDown();
    }

    SECURITY_STATUS Export(NCRYPT_KEY_HANDLE key, const platform::WideChar* type, Bytes* blob,
                           DWORD* result, DWORD flags = 0, NCRYPT_KEY_HANDLE exportKey = 0) {
        return table_->ExportKey(provider_, key, exportKey, type, nullptr,
                                 blob ? blob->data() : nullptr,
                                 blob ? static_cast<DWORD>(blob->size()) : 0, result, flags);
    }
    bool Logged(const std::string& line) const {
        std::vector<std::string> lines = LogLines();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }
    std::vector<platform::WideString> ListedKeys() {
        std::vector<platform::WideString> names;
        NCryptKeyName* name = nullptr;
        PVOID state = nullptr;
        while (table_->EnumKeys(provider_, nullptr, &name, &state, 0) == 0) {
            names.emplace_back(name->pszName);
            table_->FreeBuffer(name);
        }
        if (state) table_->FreeBuffer(state);
        return names;
    }

    NCRYPT_KEY_HANDLE key_ = 0;
};

uint32_t DwordAt(const Bytes& blob, size_t offset) {
    uint32_t value = 0;
    std::memcpy(&value, blob.data() + offset, 4);
    return value;
}

}  // namespace

TEST_F(ExportAndDelete, ExportWritesTheRsaPublicBlobOfANewKey) {
    NCRYPT_KEY_HANDLE created = 0;
    ASSERT_EQ(table_->CreatePersistedKey(provider_, &created, WIDE("RSA"), WIDE("blob"), 0, 0), 0);
    DWORD result = 0xDEAD;
    EXPECT_EQ(Export(created, WIDE("RSAPUBLICBLOB"), nullptr, &result, 0x20), NTE_BAD_FLAGS)
        << "the flags before the key state";
    EXPECT_TRUE(Logged("NTE_BAD_FLAGS: No flags are defined for this function."));
    EXPECT_EQ(Export(created, WIDE("RSAPRIVATEBLOB"), nullptr, &result), NTE_BAD_KEY_STATE);
    EXPECT_TRUE(Logged("NTE_BAD_KEY_STATE: Key is not yet finalized"));
    NewScript().Type(WIDE("1234")).ClickOk();
    ASSERT_EQ(table_->FinalizeKey(provider_, created, 0), 0);

    EXPECT_EQ(Export(created, WIDE("RSAPUBLICBLOB"), nullptr, &result, NCRYPT_SILENT_FLAG), 0);
    EXPECT_EQ(result, 283u);
    EXPECT_TRUE(Logged("pbOutput is NULL. Querying key blob size... 0x0000011B"));
    Bytes small(282);
    result = 0xDEAD;
    EXPECT_EQ(Export(created, WIDE("RSAPUBLICBLOB"), &small, &result), NTE_BUFFER_TOO_SMALL);
    EXPECT_EQ(result, 0xDEADu) << "left as it was";
    EXPECT_TRUE(
        Logged("NTE_BUFFER_TOO_SMALL: The expected output is larger than the output buffer"));

    Bytes blob(300, 0xEE);
    ASSERT_EQ(Export(created, WIDE("RSAPUBLICBLOB"), &blob, &result), 0);
    EXPECT_EQ(result, 283u);
    EXPECT_EQ(Bytes(blob.begin(), blob.begin() + 4), (Bytes{'R', 'S', 'A', '1'}));
    EXPECT_EQ(DwordAt(blob, 4), 2048u);
    EXPECT_EQ(DwordAt(blob, 8), 3u);
    EXPECT_EQ(DwordAt(blob, 12), 256u);
    EXPECT_EQ(DwordAt(blob, 16), 0u);
    EXPECT_EQ(DwordAt(blob, 20), 0u);
    EXPECT_EQ(Bytes(blob.begin() + 24, blob.begin() + 27), (Bytes{1, 0, 1}));
    TokenObjects token(*g_pCryptoki);
    EXPECT_EQ(Bytes(blob.begin() + 27, blob.begin() + 283),
              token.Attribute(KeyRecord(created)->hPublicKey, CKA_MODULUS));
    EXPECT_TRUE(std::all_of(blob.begin() + 283, blob.end(), [](uint8_t b) { return b == 0; }));
    EXPECT_EQ(table_->FreeKey(provider_, created), 0);
}

TEST_F(ExportAndDelete, ExportRefusesWhatItCannotHandOut) {
    DWORD result = 0;
    EXPECT_EQ(table_->ExportKey(provider_, key_, 0, WIDE("RSAPUBLICBLOB"), nullptr, nullptr, 0,
                                nullptr, 0),
              NTE_INVALID_PARAMETER);
    EXPECT_TRUE(Logged("NTE_INVALID_PARAMETER: pcbResult is NULL"));
    for (const platform::WideChar* type : {WIDE("rsapublicblob"), WIDE("RSA"), WIDE("")})
        EXPECT_EQ(Export(key_, type, nullptr, &result), NTE_NOT_SUPPORTED);
    EXPECT_EQ(Export(key_, nullptr, nullptr, &result), NTE_NOT_SUPPORTED);
    EXPECT_TRUE(Logged("NTE_NOT_SUPPORTED: pszBlobType is not supported"));
    for (const platform::WideChar* type : {WIDE("RSAPRIVATEBLOB"), WIDE("RSAFULLPRIVATEBLOB")}) {
        ClearLog();
        EXPECT_EQ(Export(key_, type, nullptr, &result, 0, key_), NTE_NOT_SUPPORTED);
        EXPECT_TRUE(Logged("NTE_NOT_SUPPORTED: Encryption of key blobs is not yet supported."));
        EXPECT_EQ(Export(key_, type, nullptr, &result), NTE_NOT_SUPPORTED);
        EXPECT_TRUE(Logged("NTE_NOT_SUPPORTED: Exporting of private keys is not allowed"));
    }
    EXPECT_EQ(Export(key_, WIDE("RSAPUBLICBLOB"), nullptr, &result), 0);
    EXPECT_EQ(result, 24u + 3 + 128);
    EXPECT_EQ(script_->runs, 0) << "the public half needs no PIN";
}

TEST_F(ExportAndDelete, DeleteDestroysThePrivateHalfFirstAndKeepsTheCertificate) {
    EXPECT_EQ(table_->DeleteKey(provider_, key_, NCRYPT_MACHINE_KEY_FLAG), NTE_BAD_FLAGS);
    EXPECT_TRUE(Logged("NTE_BAD_FLAGS: Only NCRYPT_SILENT_FLAG is acceptable"));
    EXPECT_EQ(table_->DeleteKey(0, key_, 0), NTE_INVALID_HANDLE);

    TokenObjects token(*g_pCryptoki);
    TokenObjects::Pair other = token.Generate(BytesOf("k2"), BytesOf("k2"));
    NCRYPT_KEY_HANDLE second = 0;
    ListedKeys();  // the list learns of k2 only when it is built again
    ASSERT_EQ(table_->OpenKey(provider_, &second, WIDE("k2"), 0, 0), 0);
    token.Destroy(other.privateKey);
    ClearLog();
    EXPECT_EQ(table_->DeleteKey(provider_, second, 0), NTE_INTERNAL_ERROR);
    EXPECT_TRUE(Logged(
        "NTE_INTERNAL_ERROR: DestroyObject failed. Check PKCS logs for detailed information"));
    EXPECT_EQ(token.Find(CKO_PUBLIC_KEY).size(), 2u) << "the public half is not touched";
    EXPECT_EQ(table_->FreeKey(provider_, second), 0);

    ASSERT_EQ(table_->SetKeyProperty(provider_, key_, WIDE("SmartCardKeyCertificate"),
                                     const_cast<uint8_t*>(kCertificateWithCommonName.data()),
                                     static_cast<DWORD>(kCertificateWithCommonName.size()), 0),
              0);
    std::vector<platform::WideString> before = ListedKeys();
    ASSERT_EQ(std::count(before.begin(), before.end(), platform::WideString(WIDE("k1"))), 1);
    EXPECT_EQ(table_->DeleteKey(provider_, key_, NCRYPT_SILENT_FLAG), 0);
    EXPECT_EQ(KeyRecord(key_)->pszKeyName.get(), nullptr) << "the key context is emptied";
    std::vector<CK_OBJECT_HANDLE> publics = token.Find(CKO_PUBLIC_KEY);
    ASSERT_EQ(publics.size(), 1u);
    EXPECT_EQ(token.Attribute(publics[0], CKA_ID), BytesOf("k2"));
    EXPECT_TRUE(token.Find(CKO_PRIVATE_KEY).empty());
    EXPECT_EQ(token.Find(CKO_CERTIFICATE).size(), 1u) << "the certificate stays";
    std::vector<platform::WideString> listed = ListedKeys();
    EXPECT_EQ(std::count(listed.begin(), listed.end(), platform::WideString(WIDE("k1"))), 0);
    EXPECT_EQ(script_->runs, 0) << "deletion makes no login";

    NCRYPT_KEY_HANDLE unfinished = 0;
    ASSERT_EQ(table_->CreatePersistedKey(provider_, &unfinished, WIDE("RSA"), WIDE("later"), 0, 0),
              0);
    EXPECT_EQ(table_->DeleteKey(provider_, unfinished, 0), 0) << "nothing on the token yet";
    EXPECT_EQ(table_->FreeKey(provider_, unfinished), 0);
}
