// Answers the middleware gives without the work they used to cost: they must
// stay the answers of the long way.
#include <filesystem>

#include "module_fixture.h"
#include "retry_counter_store.h"
#include "rsa_check.h"

namespace {

class ShortcutTest : public ModuleTest {
protected:
    void SetUp() override {
        ModuleTest::SetUp();
        ASSERT_EQ(login(), CKR_OK);
        pair_ = generate_key_pair("shortcut");
        modulus_ = read_attribute(session_, pair_.public_key, CKA_MODULUS);
        exponent_ = read_attribute(session_, pair_.public_key, CKA_PUBLIC_EXPONENT);
    }

    CK_MECHANISM pkcs1_{CKM_RSA_PKCS, nullptr, 0};
    KeyPair pair_;
    Bytes modulus_, exponent_;
};

}  // namespace

TEST_F(ShortcutTest, SignLengthQueryLeavesNothingOpenAndTheSignatureFollows) {
    Bytes data(51, 0x42), other(51, 0x43), signature(128);
    CK_ULONG length = 0;
    ASSERT_EQ(p11().C_SignInit(session_, &pkcs1_, pair_.private_key), CKR_OK);
    ASSERT_EQ(p11().C_Sign(session_, data.data(), data.size(), nullptr, &length), CKR_OK);
    EXPECT_EQ(length, 128u);
    EXPECT_EQ(count_all_objects(), 2u) << "a search runs: the backend has no operation open";
    length = 127;
    EXPECT_EQ(p11().C_Sign(session_, data.data(), data.size(), signature.data(), &length),
              CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(length, 128u);
    ASSERT_EQ(p11().C_Sign(session_, data.data(), data.size(), signature.data(), &length), CKR_OK);
    EXPECT_EQ(length, 128u);
    EXPECT_TRUE(verify_raw_pkcs1(modulus_, exponent_, data, signature));
    EXPECT_EQ(p11().C_Sign(session_, data.data(), data.size(), signature.data(), &length),
              CKR_OPERATION_NOT_INITIALIZED);

    // Other data after the query, a multi-part call, or a fresh Init: as if the query had
    // signed.
    ASSERT_EQ(p11().C_SignInit(session_, &pkcs1_, pair_.private_key), CKR_OK);
    ASSERT_EQ(p11().C_Sign(session_, data.data(), data.size(), nullptr, &length), CKR_OK);
    EXPECT_EQ(p11().C_Sign(session_, other.data(), other.size(), signature.data(), &length),
              CKR_OPERATION_NOT_INITIALIZED);
    ASSERT_EQ(p11().C_SignInit(session_, &pkcs1_, pair_.private_key), CKR_OK);
    ASSERT_EQ(p11().C_Sign(session_, data.data(), data.size(), nullptr, &length), CKR_OK);
    EXPECT_EQ(p11().C_SignUpdate(session_, data.data(), data.size()),
              CKR_OPERATION_NOT_INITIALIZED);
    ASSERT_EQ(p11().C_SignInit(session_, &pkcs1_, pair_.private_key), CKR_OK);
    ASSERT_EQ(p11().C_Sign(session_, data.data(), data.size(), nullptr, &length), CKR_OK);
    ASSERT_EQ(p11().C_SignInit(session_, &pkcs1_, pair_.private_key), CKR_OK);
    length = signature.size();
    ASSERT_EQ(p11().C_Sign(session_, other.data(), other.size(), signature.data(), &length),
              CKR_OK);
    EXPECT_TRUE(verify_raw_pkcs1(modulus_, exponent_, other, signature));

    // Data too long for the key still fails as the signature fails.
    Bytes overlong(118, 0x01);
    ASSERT_EQ(p11().C_SignInit(session_, &pkcs1_, pair_.private_key), CKR_OK);
    EXPECT_NE(p11().C_Sign(session_, overlong.data(), overlong.size(), nullptr, &length), CKR_OK);
    EXPECT_EQ(count_all_objects(), 2u);
}

TEST_F(ShortcutTest, ModulusBitsComeWithTheOtherAttributesInEveryOutcome) {
    for (CK_OBJECT_HANDLE key : {pair_.public_key, pair_.private_key}) {
        CK_BYTE id[64], label[64];
        CK_ULONG bits = 0;
        CK_ATTRIBUTE read[] = {{CKA_ID, id, sizeof id},
                               {CKA_LABEL, label, sizeof label},
                               {CKA_MODULUS_BITS, &bits, sizeof bits}};
        ASSERT_EQ(p11().C_GetAttributeValue(session_, key, read, 3), CKR_OK);
        EXPECT_EQ(bits, 1024u);
        EXPECT_EQ(read[1].ulValueLen, 8u);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(label), 8), "shortcut");
        EXPECT_EQ(read[2].ulValueLen, sizeof(CK_ULONG));

        // A buffer too small for one attribute: that one alone is unavailable.
        bits = 0;
        read[1].ulValueLen = 3;
        EXPECT_EQ(p11().C_GetAttributeValue(session_, key, read, 3), CKR_BUFFER_TOO_SMALL);
        EXPECT_EQ(read[1].ulValueLen, CK_UNAVAILABLE_INFORMATION);
        EXPECT_EQ(bits, 1024u);

        // An attribute keys do not have: reported, and the others still answered.
        CK_ULONG value_len = 0;
        bits = 0;
        CK_ATTRIBUTE invalid[] = {{CKA_VALUE_LEN, &value_len, sizeof value_len},
                                  {CKA_MODULUS_BITS, &bits, sizeof bits}};
        EXPECT_EQ(p11().C_GetAttributeValue(session_, key, invalid, 2), CKR_ATTRIBUTE_TYPE_INVALID);
        EXPECT_EQ(invalid[0].ulValueLen, CK_UNAVAILABLE_INFORMATION);
        EXPECT_EQ(bits, 1024u);

        // The length alone, without a buffer.
        CK_ATTRIBUTE size{CKA_MODULUS_BITS, nullptr, 0};
        EXPECT_EQ(p11().C_GetAttributeValue(session_, key, &size, 1), CKR_OK);
        EXPECT_EQ(size.ulValueLen, sizeof(CK_ULONG));
    }
    CK_ULONG bits = 0;
    CK_ATTRIBUTE read{CKA_MODULUS_BITS, &bits, sizeof bits};
    EXPECT_EQ(p11().C_GetAttributeValue(session_, pair_.private_key + 1000, &read, 1),
              CKR_OBJECT_HANDLE_INVALID);
}

TEST_F(ShortcutTest, LoggedInSessionNeedsNoCounterButOthersStillDo) {
    // A counter store that cannot be locked: a PIN try would be refused.
    const std::filesystem::path lock = token_->state_dir() / "pin-counters.lock";
    std::filesystem::remove(lock);
    std::filesystem::create_directory(lock);

    EXPECT_EQ(extended_login(SoftHsmToken::kUserPin), CKR_USER_ALREADY_LOGGED_IN);
    EXPECT_EQ(login(), CKR_USER_ALREADY_LOGGED_IN);
    EXPECT_EQ(token_flags() & CKF_USER_PIN_LOCKED, 0u);

    ASSERT_EQ(p11().C_Logout(session_), CKR_OK);
    EXPECT_EQ(login("0000"), CKR_FUNCTION_FAILED);
    EXPECT_EQ(extended_login(SoftHsmToken::kUserPin), CKR_DEVICE_ERROR);
}

TEST(RetryCounterCache, EveryChangeOfTheFileIsSeenAndNothingElseRereadsIt) {
    SoftHsmToken token;
    // No settling time: the identity of the file alone must tell every change apart.
    const quelm::RetryCounterStore reader(token.state_dir(), std::chrono::nanoseconds(0));
    const quelm::RetryCounterStore writer(token.state_dir());

    // The first read makes the state directory; from then on the file is known to be missing.
    EXPECT_TRUE(reader.read_current().empty());
    EXPECT_TRUE(reader.read_current().empty());
    const auto reads = reader.file_reads();
    EXPECT_TRUE(reader.read_current().empty());
    EXPECT_EQ(reader.file_reads(), reads);

    for (unsigned failures : {2u, 1u, 2u, 0u, 3u}) {
        {
            auto change = writer.begin();
            change.set_failures("serial", failures);
            change.commit();
        }
        const auto counters = reader.read_current();
        EXPECT_EQ(counters.count("serial") ? counters.at("serial") : 0u, failures);
        EXPECT_EQ(reader.read_current(), counters);
    }
    EXPECT_EQ(reader.file_reads(), reads + 5);

    // With the usual settling time a file just written is read every time.
    const quelm::RetryCounterStore settling(token.state_dir());
    settling.read_current();
    settling.read_current();
    EXPECT_EQ(settling.file_reads(), 2u);
}
