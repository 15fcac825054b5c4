#include "module_fixture.h"
#include "rsa_check.h"

namespace {

class KeptOutputTest : public ModuleTest {
protected:
    void SetUp() override {
        ModuleTest::SetUp();
        ASSERT_EQ(login(), CKR_OK);
        pair_ = generate_key_pair("kept");
        modulus_ = read_attribute(session_, pair_.public_key, CKA_MODULUS);
        exponent_ = read_attribute(session_, pair_.public_key, CKA_PUBLIC_EXPONENT);
    }

    Bytes encrypt(const Bytes& plain) {
        Bytes cipher(128);
        CK_ULONG length = cipher.size();
        EXPECT_EQ(p11().C_EncryptInit(session_, &pkcs1_, pair_.public_key), CKR_OK);
        EXPECT_EQ(
            p11().C_Encrypt(session_, (CK_BYTE_PTR)plain.data(), plain.size(), nullptr, &length),
            CKR_OK);
        EXPECT_EQ(length, 128u);
        EXPECT_EQ(p11().C_Encrypt(session_, (CK_BYTE_PTR)plain.data(), plain.size(), cipher.data(),
                                  &length),
                  CKR_OK);
        return cipher;
    }

    CK_MECHANISM pkcs1_{CKM_RSA_PKCS, nullptr, 0};
    KeyPair pair_;
    Bytes modulus_, exponent_;
};

}  // namespace

TEST_F(KeptOutputTest, LengthQueryThenFreshInitThenSignatureThatOpenSslAccepts) {
    Bytes data(35, 0x11), signature(128);
    CK_ULONG length = 0;
    ASSERT_EQ(p11().C_SignInit(session_, &pkcs1_, pair_.private_key), CKR_OK);
    ASSERT_EQ(p11().C_Sign(session_, data.data(), data.size(), nullptr, &length), CKR_OK);
    EXPECT_EQ(length, 128u);
    ASSERT_EQ(p11().C_SignInit(session_, &pkcs1_, pair_.private_key), CKR_OK);
    length = 10;
    ASSERT_EQ(p11().C_Sign(session_, data.data(), data.size(), signature.data(), &length),
              CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 128u);
    // The backend has nothing open: a search may run in between.
    EXPECT_EQ(count_all_objects(), 2u);
    ASSERT_EQ(p11().C_Sign(session_, data.data(), data.size(), signature.data(), &length), CKR_OK);
    EXPECT_TRUE(verify_raw_pkcs1(modulus_, exponent_, data, signature));
    EXPECT_EQ(p11().C_Sign(session_, data.data(), data.size(), signature.data(), &length),
              CKR_OPERATION_NOT_INITIALIZED);

    ASSERT_EQ(p11().C_VerifyInit(session_, &pkcs1_, pair_.public_key), CKR_OK);
    EXPECT_EQ(p11().C_Verify(session_, data.data(), data.size(), signature.data(), length), CKR_OK);
}

TEST_F(KeptOutputTest, DecryptLengthQueryIsExactAndTheResultIsHandedOutOnce) {
    const Bytes plain(32, 0x5C);
    const Bytes cipher = encrypt(plain);
    CK_ULONG length = 0;
    ASSERT_EQ(p11().C_DecryptInit(session_, &pkcs1_, pair_.private_key), CKR_OK);
    ASSERT_EQ(
        p11().C_Decrypt(session_, (CK_BYTE_PTR)cipher.data(), cipher.size(), nullptr, &length),
        CKR_OK);
    EXPECT_EQ(length, 32u);
    Bytes out(32);
    ASSERT_EQ(
        p11().C_Decrypt(session_, (CK_BYTE_PTR)cipher.data(), cipher.size(), out.data(), &length),
        CKR_OK);
    EXPECT_EQ(out, plain);

    // An exact-size buffer works at once, although the backend alone asks for the modulus size.
    ASSERT_EQ(p11().C_DecryptInit(session_, &pkcs1_, pair_.private_key), CKR_OK);
    std::fill(out.begin(), out.end(), 0);
    length = 32;
    ASSERT_EQ(
        p11().C_Decrypt(session_, (CK_BYTE_PTR)cipher.data(), cipher.size(), out.data(), &length),
        CKR_OK);
    EXPECT_EQ(out, plain);
}
