#include <gtest/gtest.h>

#include "keys/key_context.h"
#include "support/pin_dialog_fixture.h"
#include "support/token_objects.h"

namespace {

using Bytes = std::vector<uint8_t>;

// A provider on a token with one 1024-bit key pair "k1", opened, and a PIN
// dialog that types the right PIN whenever it is shown.
class Crypto : public PinDialog {
protected:
    void SetUp() override {
        PinDialog::SetUp();
        {
            TokenObjects token(*g_pCryptoki);
            token.Generate(BytesOf("k1"), BytesOf("k1"));
            token.Generate(BytesOf("nodecrypt"), BytesOf("nodecrypt"), "key", false);
        }
        AnswerPin();
        ASSERT_EQ(table_->OpenKey(provider_, &key_, WIDE("k1"), 0, 0), 0);
    }
    void TearDown() override {
        if (key_) {
            EXPECT_EQ(table_->FreeKey(provider_, key_), 0);
        }
        PinDialog::TearDown();
    }

    void AnswerPin() { NewScript().Type(WIDE("1234")).ClickOk(); }

    SECURITY_STATUS Sign(const Bytes& hash, Bytes* signature, DWORD flags = 0) {
        DWORD length = 0;
        SECURITY_STATUS status =
            table_->SignHash(provider_, key_, nullptr, const_cast<uint8_t*>(hash.data()),
                             static_cast<DWORD>(hash.size()), nullptr, 0, &length, flags);
        if (status != 0) return status;
        signature->assign(length, 0);
        status = table_->SignHash(provider_, key_, nullptr, const_cast<uint8_t*>(hash.data()),
                                  static_cast<DWORD>(hash.size()), signature->data(), length,
                                  &length, flags);
        signature->resize(length);
        return status;
    }

    SECURITY_STATUS Verify(const Bytes& hash, const Bytes& signature) {
        return table_->VerifySignature(provider_, key_, nullptr, const_cast<uint8_t*>(hash.data()),
                                       static_cast<DWORD>(hash.size()),
                                       const_cast<uint8_t*>(signature.data()),
                                       static_cast<DWORD>(signature.size()), 0);
    }

    NCRYPT_KEY_HANDLE key_ = 0;
};

const Bytes kSha1Prefix = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2b, 0x0e,
                           0x03, 0x02, 0x1a, 0x05, 0x00, 0x04, 0x14};

}  // namespace

TEST_F(Crypto, SignsEveryAcceptedLengthAndVerifiesWhatItSigned) {
    for (size_t length : {16, 20, 32, 64, 34, 35, 51, 83, 36}) {
        Bytes hash(length, static_cast<uint8_t>(length));
        Bytes signature;
        ASSERT_EQ(Sign(hash, &signature), 0) << length;
        EXPECT_EQ(signature.size(), 128u);
        EXPECT_EQ(Verify(hash, signature), 0) << length;
        signature[5] ^= 1;
        EXPECT_EQ(Verify(hash, signature), NTE_FAIL) << length;
    }
    EXPECT_NE(TokenLog().find("Verify failed. Check PKCS logs for detailed information"),
              std::string::npos);

    Bytes sha1(20, 0xAB), wrapped = kSha1Prefix, bare, framed;
    wrapped.insert(wrapped.end(), sha1.begin(), sha1.end());
    ASSERT_EQ(Sign(sha1, &bare), 0);
    ASSERT_EQ(Sign(wrapped, &framed), 0);
    EXPECT_EQ(bare, framed) << "a bare SHA-1 hash is signed as its DigestInfo";
    EXPECT_EQ(script_->runs, 1) << "one PIN dialog, then the cache";

    for (size_t length : {28, 48, 47, 67, 0}) {
        Bytes hash(length + 1, 1);
        hash.resize(length);
        Bytes signature;
        EXPECT_EQ(Sign(hash, &signature), NTE_INVALID_PARAMETER) << length;
    }
}

TEST_F(Crypto, SignatureLengthsAndTheChecksBeforeTheLogin) {
    Bytes hash(32, 7);
    DWORD length = 0;
    ASSERT_EQ(table_->SignHash(provider_, key_, nullptr, hash.data(), 32, nullptr, 0, &length,
                               NCRYPT_PAD_PKCS1_FLAG | NCRYPT_SILENT_FLAG),
              0);
    EXPECT_EQ(length, 128u);
    Bytes small(127);
    DWORD got = 0;
    EXPECT_EQ(
        table_->SignHash(provider_, key_, nullptr, hash.data(), 32, small.data(), 127, &got, 0),
        NTE_BUFFER_TOO_SMALL);
    EXPECT_EQ(got, 128u);

    NewScript();  // no PIN: any login from here would be cancelled
    EXPECT_EQ(table_->SignHash(provider_, key_, nullptr, hash.data(), 32, nullptr, 0, &got,
                               NCRYPT_PAD_OAEP_FLAG),
              NTE_BAD_FLAGS);
    EXPECT_EQ(table_->SignHash(provider_, key_, nullptr, hash.data(), 32, nullptr, 0, &got,
                               NCRYPT_PAD_PSS_FLAG),
              NTE_NOT_SUPPORTED);
    EXPECT_EQ(table_->SignHash(provider_, key_, nullptr, nullptr, 32, nullptr, 0, &got, 0),
              NTE_INVALID_PARAMETER);
    EXPECT_EQ(table_->SignHash(provider_, 0, nullptr, hash.data(), 32, nullptr, 0, &got, 0),
              NTE_INVALID_HANDLE);
    KeyRecord(key_)->dwKeyUsage = NCRYPT_ALLOW_DECRYPT_FLAG;
    EXPECT_EQ(table_->SignHash(provider_, key_, nullptr, hash.data(), 32, nullptr, 0, &got, 0),
              NTE_PERM);
    EXPECT_EQ(script_->runs, 0) << "refused before any login";
}

TEST_F(Crypto, EncryptsAndDecryptsThroughTheToken) {
    Bytes message = BytesOf("thirty-two bytes of plain text!!");
    DWORD length = 0;
    ASSERT_EQ(table_->Encrypt(provider_, key_, message.data(), 32, nullptr, nullptr, 0, &length,
                              NCRYPT_PAD_PKCS1_FLAG),
              0);
    EXPECT_EQ(length, 128u) << "the modulus length";
    EXPECT_EQ(script_->runs, 1) << "the PIN is asked even for the public key";
    Bytes cipher(length);
    ASSERT_EQ(table_->Encrypt(provider_, key_, message.data(), 32, nullptr, cipher.data(), length,
                              &length, 0),
              0);

    DWORD plainLength = 0;
    ASSERT_EQ(
        table_->Decrypt(provider_, key_, cipher.data(), 128, nullptr, nullptr, 0, &plainLength, 0),
        0);
    EXPECT_EQ(plainLength, 32u);
    Bytes plain(plainLength);
    ASSERT_EQ(table_->Decrypt(provider_, key_, cipher.data(), 128, nullptr, plain.data(),
                              plainLength, &plainLength, 0),
              0);
    EXPECT_EQ(plain, message);

    EXPECT_EQ(table_->Encrypt(provider_, key_, message.data(), 100, nullptr, nullptr, 0, &length,
                              NCRYPT_NO_PADDING_FLAG),
              NTE_INVALID_PARAMETER);
    EXPECT_NE(TokenLog().find("NTE_INVALID_PARAMETER: Data length is not a multiple of the "
                              "algorithm block length."),
              std::string::npos);
    Bytes block(128, 0);
    block[1] = 2;
    EXPECT_NE(table_->Encrypt(provider_, key_, block.data(), 128, nullptr, nullptr, 0, &length,
                              NCRYPT_NO_PADDING_FLAG),
              NTE_INVALID_PARAMETER)
        << "a whole block passes the check and goes to the token";
    EXPECT_EQ(table_->Encrypt(provider_, key_, message.data(), 32, nullptr, nullptr, 0, &length,
                              NCRYPT_PAD_OAEP_FLAG),
              NTE_NOT_SUPPORTED);
    EXPECT_EQ(table_->Decrypt(provider_, key_, message.data(), 32, nullptr, nullptr, 0, &length,
                              NCRYPT_PAD_PSS_FLAG),
              NTE_BAD_FLAGS);
    KeyRecord(key_)->dwBitLength = 4;
    EXPECT_EQ(table_->Encrypt(provider_, key_, message.data(), 32, nullptr, nullptr, 0, &length,
                              NCRYPT_NO_PADDING_FLAG),
              NTE_INVALID_PARAMETER)
        << "no block length, no division";
}

TEST_F(Crypto, VerifyAsksForThePinAndAKeyThatMayNotDecryptIsRefused) {
    Bytes hash(32, 1), signature(128, 0);
    EXPECT_EQ(Verify(hash, signature), NTE_FAIL);
    EXPECT_EQ(script_->runs, 1) << "the dialog was shown for a verification";

    NCRYPT_KEY_HANDLE noDecrypt = 0;
    ASSERT_EQ(table_->OpenKey(provider_, &noDecrypt, WIDE("nodecrypt"), 0, 0), 0);
    Bytes cipher(128, 1);
    DWORD length = 0;
    EXPECT_EQ(
        table_->Decrypt(provider_, noDecrypt, cipher.data(), 128, nullptr, nullptr, 0, &length, 0),
        NTE_PERM);
    EXPECT_EQ(table_->FreeKey(provider_, noDecrypt), 0);
}

// A caller that overstates its buffer's length is refused before the token
// would read past the buffer; the AddressSanitizer build would catch a read.
TEST_F(Crypto, LengthsTheKeyCannotTakeNeverReachTheToken) {
    const DWORD overstated = 0x40000000;
    Bytes buffer(128, 1), output(128);
    DWORD length = 0;
    EXPECT_EQ(table_->Encrypt(provider_, key_, buffer.data(), overstated, nullptr, output.data(),
                              128, &length, 0),
              NTE_INTERNAL_ERROR);
    EXPECT_EQ(table_->Encrypt(provider_, key_, buffer.data(), 118, nullptr, output.data(), 128,
                              &length, 0),
              NTE_INTERNAL_ERROR)
        << "one byte more than PKCS#1 v1.5 leaves room for";
    EXPECT_EQ(table_->Decrypt(provider_, key_, buffer.data(), overstated, nullptr, output.data(),
                              128, &length, 0),
              NTE_INTERNAL_ERROR);
    EXPECT_EQ(table_->VerifySignature(provider_, key_, nullptr, buffer.data(), 32, buffer.data(),
                                      overstated, 0),
              NTE_FAIL);
    EXPECT_EQ(table_->VerifySignature(provider_, key_, nullptr, buffer.data(), overstated,
                                      buffer.data(), 128, 0),
              NTE_FAIL);

    Bytes message = BytesOf("still works");
    ASSERT_EQ(table_->Encrypt(provider_, key_, message.data(), static_cast<DWORD>(message.size()),
                              nullptr, output.data(), 128, &length, 0),
              0);
    EXPECT_EQ(table_->Decrypt(provider_, key_, output.data(), 128, nullptr, buffer.data(), 128,
                              &length, 0),
              0);
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + length), message);
}
