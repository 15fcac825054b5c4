#include <cstring>

#include "module_fixture.h"
#include "rsa_check.h"

namespace {

class TemplatesTest : public ModuleTest {
protected:
    void SetUp() override {
        ModuleTest::SetUp();
        ASSERT_EQ(login(), CKR_OK);
    }

    CK_OBJECT_HANDLE create(std::vector<CK_ATTRIBUTE> object, CK_RV expected = CKR_OK) {
        CK_OBJECT_HANDLE handle = CK_INVALID_HANDLE;
        EXPECT_EQ(p11().C_CreateObject(session_, object.data(), object.size(), &handle), expected);
        return handle;
    }

    CK_OBJECT_CLASS public_class_ = CKO_PUBLIC_KEY, private_class_ = CKO_PRIVATE_KEY,
                    certificate_class_ = CKO_CERTIFICATE;
    CK_BBOOL yes_ = CK_TRUE, no_ = CK_FALSE;
    CK_ULONG bits_ = 1024;
    CK_BYTE id_[64] = {7};
};

}  // namespace

TEST_F(TemplatesTest, ImportedKeyFromPrimesOnlySignsForOpenSsl) {
    RsaComponents rsa = generate_rsa_components(1024);
    // The provider's public key template: no key type, but the bit count and CKA_EXTRACTABLE.
    create({{CKA_CLASS, &public_class_, sizeof public_class_},
            {CKA_TOKEN, &yes_, 1},
            {CKA_PRIVATE, &no_, 1},
            {CKA_MODIFIABLE, &yes_, 1},
            {CKA_EXTRACTABLE, &yes_, 1},
            {CKA_ID, id_, sizeof id_},
            {CKA_PUBLIC_EXPONENT, rsa.e.data(), rsa.e.size()},
            {CKA_MODULUS, rsa.n.data(), rsa.n.size()},
            {CKA_MODULUS_BITS, &bits_, sizeof bits_},
            {CKA_ENCRYPT, &yes_, 1},
            {CKA_VERIFY, &yes_, 1},
            {CKA_LABEL, (void*)"imported", 8}});
    const CK_OBJECT_HANDLE private_key =
        create({{CKA_CLASS, &private_class_, sizeof private_class_},
                {CKA_TOKEN, &yes_, 1},
                {CKA_PRIVATE, &yes_, 1},
                {CKA_ID, id_, sizeof id_},
                {CKA_MODULUS, rsa.n.data(), rsa.n.size()},
                {CKA_MODULUS_BITS, &bits_, sizeof bits_},
                {CKA_PUBLIC_EXPONENT, rsa.e.data(), rsa.e.size()},
                {CKA_PRIME_1, rsa.p.data(), rsa.p.size()},
                {CKA_PRIME_2, rsa.q.data(), rsa.q.size()},
                {CKA_SIGN, &yes_, 1},
                {CKA_DECRYPT, &yes_, 1},
                {CKA_SENSITIVE, &no_, 1},
                {CKA_EXTRACTABLE, &yes_, 1},
                {CKA_LABEL, (void*)"imported", 8}});
    EXPECT_EQ(count_all_objects(), 2u);
    EXPECT_EQ(read_attribute(session_, private_key, CKA_PRIVATE), Bytes{CK_FALSE});

    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    Bytes data(36, 0x42), signature(128);
    CK_ULONG length = signature.size();
    ASSERT_EQ(p11().C_SignInit(session_, &mechanism, private_key), CKR_OK);
    ASSERT_EQ(p11().C_Sign(session_, data.data(), data.size(), signature.data(), &length), CKR_OK);
    EXPECT_TRUE(verify_raw_pkcs1(rsa.n, rsa.e, data, signature));

    // Stored readable, yet its secret parts stay hidden until the PIN is given.
    ASSERT_EQ(p11().C_Logout(session_), CKR_OK);
    EXPECT_TRUE(read_attribute(session_, private_key, CKA_PRIVATE_EXPONENT).empty());
    EXPECT_EQ(read_attribute(session_, private_key, CKA_PRIME_1), Bytes());
    ASSERT_EQ(login(), CKR_OK);
    EXPECT_EQ(read_attribute(session_, private_key, CKA_PRIME_1), rsa.p);
    // The derived exponent may be shorter than the modulus; the signature above shows it is right.
    const Bytes d = read_attribute(session_, private_key, CKA_PRIVATE_EXPONENT);
    EXPECT_FALSE(d.empty());
    EXPECT_LE(d.size(), 128u);
}

TEST_F(TemplatesTest, CertificateWithoutTypeIsStoredAsX509) {
    CK_BYTE der[] = {0x30, 0x03, 0x02, 0x01, 0x01}, name[] = {0x30, 0x00, 0x00};
    // The provider's certificate template: no type, but CKA_OBJECT_ID and CKA_EXTRACTABLE.
    const CK_OBJECT_HANDLE stored =
        create({{CKA_CLASS, &certificate_class_, sizeof certificate_class_},
                {CKA_TOKEN, &yes_, 1},
                {CKA_LABEL, (void*)"cert", 4},
                {CKA_VALUE, der, sizeof der},
                {CKA_PRIVATE, &no_, 1},
                {CKA_MODIFIABLE, &yes_, 1},
                {CKA_EXTRACTABLE, &yes_, 1},
                {CKA_ID, id_, 20},
                {CKA_OBJECT_ID, id_, 20},
                {CKA_ISSUER, name, sizeof name},
                {CKA_SERIAL_NUMBER, der, 1},
                {CKA_SUBJECT, name, sizeof name}});
    CK_CERTIFICATE_TYPE type = CKC_X_509;
    EXPECT_EQ(read_attribute(session_, stored, CKA_CERTIFICATE_TYPE),
              Bytes(reinterpret_cast<CK_BYTE*>(&type), reinterpret_cast<CK_BYTE*>(&type + 1)));
    EXPECT_EQ(count_all_objects(), 1u);
}

TEST_F(TemplatesTest, RejectedTemplatesLeaveNothingBehind) {
    RsaComponents rsa = generate_rsa_components(1024);
    RsaComponents other = generate_rsa_components(1024);
    CK_BYTE name[] = {0x30, 0x00};
    CK_ULONG wide_bool = CK_TRUE;
    create({{CKA_CLASS, &certificate_class_, sizeof certificate_class_},
            {CKA_TOKEN, &yes_, 1},
            {CKA_VALUE, name, sizeof name}},
           CKR_TEMPLATE_INCOMPLETE);
    create({{CKA_CLASS, &private_class_, sizeof private_class_},
            {CKA_TOKEN, &yes_, 1},
            {CKA_MODULUS, rsa.n.data(), rsa.n.size()},
            {CKA_PUBLIC_EXPONENT, rsa.e.data(), rsa.e.size()},
            {CKA_PRIME_1, other.p.data(), other.p.size()},
            {CKA_PRIME_2, rsa.q.data(), rsa.q.size()}},
           CKR_ATTRIBUTE_VALUE_INVALID);
    create({{CKA_CLASS, &public_class_, sizeof public_class_},
            {CKA_TOKEN, &wide_bool, sizeof wide_bool},
            {CKA_MODULUS, rsa.n.data(), rsa.n.size()},
            {CKA_PUBLIC_EXPONENT, rsa.e.data(), rsa.e.size()}},
           CKR_ATTRIBUTE_VALUE_INVALID);
    create({{CKA_CLASS, &public_class_, sizeof public_class_},
            {CKA_TOKEN, &yes_, 1},
            {CKA_LOCAL, &yes_, 1},
            {CKA_MODULUS, rsa.n.data(), rsa.n.size()},
            {CKA_PUBLIC_EXPONENT, rsa.e.data(), rsa.e.size()}},
           CKR_ATTRIBUTE_READ_ONLY);

    CK_MECHANISM generation{CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
    CK_ATTRIBUTE public_template[] = {{CKA_TOKEN, &yes_, 1},
                                      {CKA_MODULUS, rsa.n.data(), rsa.n.size()},
                                      {CKA_MODULUS_BITS, &bits_, sizeof bits_}};
    CK_ATTRIBUTE private_template[] = {{CKA_TOKEN, &yes_, 1}};
    CK_OBJECT_HANDLE public_key, private_key;
    EXPECT_EQ(p11().C_GenerateKeyPair(session_, &generation, public_template, 3, private_template,
                                      1, &public_key, &private_key),
              CKR_ATTRIBUTE_READ_ONLY);
    EXPECT_EQ(p11().C_GenerateKeyPair(session_, &generation, public_template, 1, private_template,
                                      1, &public_key, &private_key),
              CKR_TEMPLATE_INCOMPLETE);
    EXPECT_EQ(count_all_objects(), 0u);

    generate_key_pair("provider template");
    EXPECT_EQ(count_all_objects(), 2u);
}
