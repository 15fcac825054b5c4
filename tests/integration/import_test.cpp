#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <list>
#include <string>

#include "keys/key_context.h"
#include "support/pin_dialog_fixture.h"
#include "support/test_rsa_key.h"
#include "support/token_objects.h"

namespace {

// A provider on an empty token, with a PIN dialog ready to type the PIN.
class KeyImport : public PinDialog {
protected:
    void SetUp() override {
        extraRegistry_ = "\"Default Key Length\"=dword:00000800\n";
        PinDialog::SetUp();
        NewScript().Type(WIDE("1234")).ClickOk();
    }
    void TearDown() override {
        for (NCRYPT_KEY_HANDLE key : keys_) EXPECT_EQ(table_->FreeKey(provider_, key), 0);
        PinDialog::TearDown();
    }

    // A parameter list of key-name entries.
    struct Names {
        std::list<platform::WideString> texts;  // entries point into them
        std::vector<NCryptBuffer> entries;
        NCryptBufferDesc desc{0, 0, nullptr};
        NCryptBufferDesc* Add(const platform::WideChar* name, ULONG bytes = 0) {
            texts.emplace_back(name);
            platform::WideString& text = texts.back();
            entries.push_back({bytes ? bytes : static_cast<ULONG>((text.size() + 1) * 2),
                               NCRYPTBUFFER_PKCS_KEY_NAME, text.data()});
            desc = {0, static_cast<ULONG>(entries.size()), entries.data()};
            return &desc;
        }
    };

    SECURITY_STATUS Import(const platform::WideChar* type, const Bytes& blob,
                           NCRYPT_KEY_HANDLE* key, NCryptBufferDesc* names = nullptr,
                           DWORD flags = 0, NCRYPT_KEY_HANDLE importKey = 0) {
        SECURITY_STATUS status = table_->ImportKey(provider_, importKey, type, names, key,
                                                   const_cast<uint8_t*>(blob.data()),
                                                   static_cast<DWORD>(blob.size()), flags);
        if (status == 0) keys_.push_back(*key);
        return status;
    }
    Bytes Sign(NCRYPT_KEY_HANDLE key, const Bytes& hash) {
        DWORD length = 0;
        EXPECT_EQ(table_->SignHash(provider_, key, nullptr, const_cast<uint8_t*>(hash.data()),
                                   static_cast<DWORD>(hash.size()), nullptr, 0, &length, 0),
                  0);
        Bytes signature(length);
        EXPECT_EQ(
            table_->SignHash(provider_, key, nullptr, const_cast<uint8_t*>(hash.data()),
                             static_cast<DWORD>(hash.size()), signature.data(), length, &length, 0),
            0);
        return signature;
    }
    bool LoggedIn() {
        CK_SESSION_INFO info{};
        g_pCryptoki->functions()->C_GetSessionInfo(Provider().hSession, &info);
        return info.state == CKS_RW_USER_FUNCTIONS;
    }
    bool Logged(const std::string& line) const {
        std::vector<std::string> lines = LogLines();
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    }
    size_t TokenKeyObjects() {
        TokenObjects token(*g_pCryptoki);
        return token.Find(CKO_PUBLIC_KEY).size() + token.Find(CKO_PRIVATE_KEY).size();
    }

    std::vector<NCRYPT_KEY_HANDLE> keys_;
};

}  // namespace

TEST_F(KeyImport, ImportChecksItsArgumentsInOrder) {
    NCRYPT_KEY_HANDLE key = 0;
    EXPECT_EQ(table_->ImportKey(0, 0, WIDE("RSAPUBLICBLOB"), nullptr, &key, nullptr, 0, 0),
              NTE_INVALID_HANDLE);
    EXPECT_EQ(Import(WIDE("RSAFULLPRIVATEBLOB"), kRsaPrivateBlob, nullptr), NTE_NOT_SUPPORTED)
        << "the blob type before the handle pointer";
    EXPECT_EQ(Import(WIDE("rsapublicblob"), kRsaPublicBlob, &key), NTE_NOT_SUPPORTED);
    EXPECT_EQ(Import(WIDE("RSAPUBLICBLOB"), kRsaPublicBlob, nullptr), NTE_INVALID_PARAMETER);
    EXPECT_TRUE(Logged("NTE_INVALID_PARAMETER: phKey is NULL"));
    EXPECT_EQ(table_->ImportKey(provider_, 0, WIDE("RSAPUBLICBLOB"), nullptr, &key, nullptr, 5, 0),
              NTE_INVALID_PARAMETER);
    EXPECT_TRUE(Logged("NTE_INVALID_PARAMETER: pbData is NULL"));
    uint8_t byte = 0;
    EXPECT_EQ(table_->ImportKey(provider_, 0, WIDE("RSAPUBLICBLOB"), nullptr, &key, &byte, 0, 0),
              NTE_INVALID_PARAMETER);
    EXPECT_TRUE(Logged("NTE_INVALID_PARAMETER: cbData is 0"));
    EXPECT_EQ(Import(WIDE("RSAPUBLICBLOB"), kRsaPublicBlob, &key, nullptr, 0x1), NTE_BAD_FLAGS);
    EXPECT_TRUE(Logged("NTE_BAD_FLAGS: The dwFlags parameter contains a value that is not valid."));
    for (DWORD flags : {NCRYPT_MACHINE_KEY_FLAG, NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG})
        EXPECT_EQ(Import(WIDE("RSAPUBLICBLOB"), kRsaPublicBlob, &key, nullptr, flags),
                  NTE_NOT_SUPPORTED);
    EXPECT_TRUE(
        Logged("NTE_NOT_SUPPORTED: NCRYPT_MACHINE_KEY_FLAG and "
               "NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG are not supported flags."));

    Bytes cut(kRsaPublicBlob.begin(), kRsaPublicBlob.end() - 1);
    EXPECT_EQ(Import(WIDE("RSAPUBLICBLOB"), cut, &key), NTE_INTERNAL_ERROR);
    EXPECT_TRUE(Logged("NTE_INTERNAL_ERROR: cbBlobBuffer is too small"));
    Bytes header(kRsaPublicBlob.begin(), kRsaPublicBlob.begin() + 20);
    EXPECT_EQ(Import(WIDE("RSAPUBLICBLOB"), header, &key), NTE_INTERNAL_ERROR);

    Bytes longExponent = kRsaPublicBlob;
    longExponent[8] = 5;
    longExponent.insert(longExponent.begin() + 24, {0, 0});
    EXPECT_EQ(Import(WIDE("RSAPUBLICBLOB"), longExponent, &key), NTE_NOT_SUPPORTED);
    EXPECT_TRUE(Logged("Public exponent length exceeds 32 bits"));

    Names unterminated;
    unterminated.Add(WIDE("abc"), 6);
    EXPECT_EQ(Import(WIDE("RSAPUBLICBLOB"), kRsaPublicBlob, &key, &unterminated.desc),
              NTE_INVALID_PARAMETER);
    EXPECT_TRUE(Logged("ReadKeyNameFromParams failed"));

    QUELMKSP_KEY forged;
    forged.cbLength = 439;
    forged.dwMagic = QUELMKSP_KEY::kMagic;
    EXPECT_EQ(Import(WIDE("RSAPUBLICBLOB"), kRsaPublicBlob, &key, nullptr, 0,
                     reinterpret_cast<NCRYPT_KEY_HANDLE>(&forged)),
              NTE_INVALID_HANDLE);
    EXPECT_TRUE(Logged("NTE_INVALID_HANDLE: hImportKey handle is invalid"));

    EXPECT_EQ(TokenKeyObjects(), 0u) << "no refused import leaves anything on the token";
    EXPECT_EQ(script_->runs, 0);
}

TEST_F(KeyImport, APublicKeyWithoutANameIsASessionObjectMadeWithoutThePin) {
    NCRYPT_KEY_HANDLE key = 0;
    ASSERT_EQ(Import(WIDE("RSAPUBLICBLOB"), kRsaPublicBlob, &key), 0);
    EXPECT_EQ(script_->runs, 0);
    QUELMKSP_KEY& record = *KeyRecord(key);
    EXPECT_EQ(record.fFinished, 1u);
    EXPECT_EQ(record.hPrivateKey, 0u);
    EXPECT_EQ(SessionAttribute(record.hPublicKey, CKA_TOKEN), Bytes{CK_FALSE});
    EXPECT_EQ(SessionAttribute(record.hPublicKey, CKA_PUBLIC_EXPONENT), (Bytes{1, 0, 1, 0}))
        << "the exponent as the blob import pads it, on the right";
    EXPECT_EQ(SessionAttribute(record.hPublicKey, CKA_MODULUS),
              Bytes(kRsaPublicBlob.begin() + 27, kRsaPublicBlob.end()));
    Bytes id = SessionAttribute(record.hPublicKey, CKA_ID);
    EXPECT_EQ(id.size(), 64u);
    EXPECT_EQ(std::count(id.begin(), id.end(), 0), 0);
}

TEST_F(KeyImport, APublicKeyWithANameIsATokenObjectAndTheSessionIsLoggedOut) {
    Names names;
    names.Add(WIDE("first"));
    names.Add(WIDE("imported"));
    names.Add(WIDE("x"), 1);
    NCRYPT_KEY_HANDLE key = 0;
    ASSERT_EQ(Import(WIDE("RSAPUBLICBLOB"), kRsaPublicBlob, &key, &names.desc), 0);
    EXPECT_EQ(script_->runs, 1) << "a named public key asks for the PIN";
    EXPECT_FALSE(LoggedIn()) << "an import leaves the session logged out";
    QUELMKSP_KEY& record = *KeyRecord(key);
    EXPECT_EQ(platform::WideString(record.KeyName()), WIDE("imported"));
    TokenObjects token(*g_pCryptoki);
    std::string label = "imported";
    std::vector<CK_OBJECT_HANDLE> found = token.Find(CKO_PUBLIC_KEY, &label);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0], record.hPublicKey);
    EXPECT_TRUE(token.BoolAttribute(found[0], CKA_TOKEN));
    EXPECT_EQ(token.Attribute(found[0], CKA_ID).size(), 64u);
}

TEST_F(KeyImport, APrivateKeySignsAsTheOriginalKey) {
    Names names;
    names.Add(WIDE("private import"));
    NCRYPT_KEY_HANDLE key = 0;
    ASSERT_EQ(Import(WIDE("RSAPRIVATEBLOB"), kRsaPrivateBlob, &key, &names.desc), 0);
    EXPECT_TRUE(Logged("Finalizing key..."));
    EXPECT_TRUE(Logged("Key is imported"));
    EXPECT_FALSE(LoggedIn());
    QUELMKSP_KEY& record = *KeyRecord(key);
    EXPECT_EQ(record.fFinished, 1u);
    TokenObjects token(*g_pCryptoki);
    Bytes id = token.Attribute(record.hPrivateKey, CKA_ID);
    EXPECT_EQ(id.size(), 64u);
    EXPECT_EQ(token.Attribute(record.hPublicKey, CKA_ID), id);
    EXPECT_TRUE(token.BoolAttribute(record.hPrivateKey, CKA_SENSITIVE));
    std::string label = "private import";
    EXPECT_EQ(token.Find(CKO_PRIVATE_KEY, &label).size(), 1u);

    EXPECT_EQ(Sign(key, kSha256OfMessage), kOpenSslSignature)
        << "PKCS#1 v1.5 is deterministic: the token signs as OpenSSL did with the original";
}

TEST_F(KeyImport, AKeyImportedWithoutFinalizingWaitsForFinalizeKey) {
    NCRYPT_KEY_HANDLE key = 0;
    ASSERT_EQ(
        Import(WIDE("RSAPRIVATEBLOB"), kRsaPrivateBlob, &key, nullptr, NCRYPT_DO_NOT_FINALIZE_FLAG),
        0);
    EXPECT_EQ(TokenKeyObjects(), 0u) << "nothing on the token before finalization";
    DWORD length = 0;
    Bytes hash = kSha256OfMessage;
    EXPECT_EQ(table_->SignHash(provider_, key, nullptr, hash.data(), 32, nullptr, 0, &length, 0),
              NTE_BAD_KEY_STATE);
    ASSERT_EQ(table_->FinalizeKey(provider_, key, 0), 0);
    EXPECT_EQ(Sign(key, kSha256OfMessage), kOpenSslSignature);
}

TEST_F(KeyImport, AnEncryptedBlobIsDecryptedOnTheTokenWithoutALogin) {
    NCRYPT_KEY_HANDLE wrapper = 0;
    ASSERT_EQ(table_->CreatePersistedKey(provider_, &wrapper, WIDE("RSA"), WIDE("wrapper"), 0, 0),
              0);
    keys_.push_back(wrapper);
    ASSERT_EQ(table_->FinalizeKey(provider_, wrapper, 0), 0);

    // The import counts the blob as long as the plaintext, so the sender
    // leaves eight bytes after the blob.
    Bytes plain(kRsaPublicBlob.begin() + 8, kRsaPublicBlob.end());
    plain.resize(plain.size() + 8, 0);
    DWORD length = 0;
    ASSERT_EQ(table_->Encrypt(provider_, wrapper, plain.data(), static_cast<DWORD>(plain.size()),
                              nullptr, nullptr, 0, &length, NCRYPT_PAD_PKCS1_FLAG),
              0);
    Bytes wrapped(kRsaPublicBlob.begin(), kRsaPublicBlob.begin() + 8);
    wrapped.resize(8 + length);
    ASSERT_EQ(table_->Encrypt(provider_, wrapper, plain.data(), static_cast<DWORD>(plain.size()),
                              nullptr, wrapped.data() + 8, length, &length, NCRYPT_PAD_PKCS1_FLAG),
              0);
    ASSERT_TRUE(LoggedIn());
    int dialogs = script_->runs;

    NCRYPT_KEY_HANDLE key = 0;
    ASSERT_EQ(Import(WIDE("RSAPUBLICBLOB"), wrapped, &key, nullptr, 0, wrapper), 0);
    EXPECT_EQ(SessionAttribute(KeyRecord(key)->hPublicKey, CKA_MODULUS),
              Bytes(kRsaPublicBlob.begin() + 27, kRsaPublicBlob.end()));
    EXPECT_FALSE(LoggedIn());

    NCRYPT_KEY_HANDLE refused = 0;
    EXPECT_NE(Import(WIDE("RSAPUBLICBLOB"), wrapped, &refused, nullptr, 0, wrapper), 0)
        << "the token refuses the import key's private key without a login";
    EXPECT_EQ(script_->runs, dialogs) << "no PIN is asked for the decryption";
    EXPECT_EQ(Import(WIDE("RSAPUBLICBLOB"), Bytes(8, 1), &refused, nullptr, 0, wrapper),
              NTE_BAD_DATA);
}
