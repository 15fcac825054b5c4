#include "module_fixture.h"
#include "rsa_check.h"

TEST_F(ModuleTest, GeneratedPrivateKeyIsFoundBeforeLoginButSignsOnlyAfter) {
    EXPECT_EQ(p11().C_Logout(session_), CKR_OK);
    CK_MECHANISM generation{CKM_RSA_PKCS_KEY_PAIR_GEN, nullptr, 0};
    CK_OBJECT_HANDLE public_key, private_key;
    EXPECT_EQ(p11().C_GenerateKeyPair(session_, &generation, nullptr, 0, nullptr, 0, &public_key,
                                      &private_key),
              CKR_USER_NOT_LOGGED_IN);
    ASSERT_EQ(login(), CKR_OK);
    generate_key_pair("card key");
    ASSERT_EQ(p11().C_Logout(session_), CKR_OK);

    EXPECT_EQ(run_probe("use-private 'card key' 1234"),
              "found=1 sign_before=0x101 login=0x0 sign_after=0x0\n");
}

TEST_F(ModuleTest, PrivateKeyNeedsLoginForUseAndSecretsButNotForItsSize) {
    ASSERT_EQ(login(), CKR_OK);
    const KeyPair pair = generate_key_pair("rules", 1024);
    ASSERT_EQ(p11().C_Logout(session_), CKR_OK);

    CK_SESSION_HANDLE other;
    ASSERT_EQ(p11().C_OpenSession(slot_, CKF_SERIAL_SESSION, nullptr, nullptr, &other), CKR_OK);
    CK_MECHANISM pkcs1{CKM_RSA_PKCS, nullptr, 0};
    EXPECT_EQ(p11().C_SignInit(other, &pkcs1, pair.private_key), CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(p11().C_DecryptInit(other, &pkcs1, pair.private_key), CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(p11().C_SignRecoverInit(other, &pkcs1, pair.private_key), CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(p11().C_VerifyInit(session_, &pkcs1, pair.public_key), CKR_OK);

    CK_ULONG bits = 0;
    CK_BYTE exponent[16];
    CK_BYTE label[16];
    CK_ATTRIBUTE mixed[] = {{CKA_LABEL, label, sizeof label},
                            {CKA_MODULUS_BITS, &bits, sizeof bits},
                            {CKA_PRIVATE_EXPONENT, exponent, sizeof exponent}};
    EXPECT_EQ(p11().C_GetAttributeValue(other, pair.private_key, mixed, 3),
              CKR_ATTRIBUTE_SENSITIVE);
    EXPECT_EQ(bits, 1024u);
    EXPECT_EQ(mixed[0].ulValueLen, 5u);
    EXPECT_EQ(mixed[2].ulValueLen, CK_UNAVAILABLE_INFORMATION);

    // A login in one session covers every session of the token.
    ASSERT_EQ(login(), CKR_OK);
    EXPECT_EQ(p11().C_SignInit(other, &pkcs1, pair.private_key), CKR_OK);
    CK_ATTRIBUTE alone{CKA_MODULUS_BITS, nullptr, 0};
    ASSERT_EQ(p11().C_GetAttributeValue(other, pair.private_key, &alone, 1), CKR_OK);
    EXPECT_EQ(alone.ulValueLen, sizeof(CK_ULONG));
    alone.pValue = &bits;
    alone.ulValueLen = 4;
    EXPECT_EQ(p11().C_GetAttributeValue(other, pair.private_key, &alone, 1), CKR_BUFFER_TOO_SMALL);
}
