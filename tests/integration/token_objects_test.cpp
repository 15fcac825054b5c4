#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include "support/provider_on_token.h"
#include "support/token_objects.h"
#include "token/private_key.h"
#include "token/public_key.h"

namespace {

// An RSA key made by OpenSSL, with its components as big-endian bytes.
struct RsaComponents {
    explicit RsaComponents(int bits) {
        EVP_PKEY* key = EVP_RSA_gen(static_cast<unsigned>(bits));
        for (auto [name, out] : {std::pair{OSSL_PKEY_PARAM_RSA_N, &modulus},
                                 {OSSL_PKEY_PARAM_RSA_FACTOR1, &prime1},
                                 {OSSL_PKEY_PARAM_RSA_FACTOR2, &prime2},
                                 {OSSL_PKEY_PARAM_RSA_EXPONENT1, &exponent1},
                                 {OSSL_PKEY_PARAM_RSA_EXPONENT2, &exponent2},
                                 {OSSL_PKEY_PARAM_RSA_COEFFICIENT1, &coefficient}}) {
            BIGNUM* number = nullptr;
            EVP_PKEY_get_bn_param(key, name, &number);
            out->resize(BN_num_bytes(number));
            BN_bn2bin(number, out->data());
            BN_free(number);
        }
        EVP_PKEY_free(key);
    }
    Bytes modulus, prime1, prime2, exponent1, exponent2, coefficient;
    const uint8_t exponent[4] = {0, 1, 0, 1};
};

class TokenObjectModel : public ProviderOnToken {
protected:
    void SetUp() override { OpenOn({"objects"}); }

    template <typename Key>
    void Bind(Key& key) const {
        key.pCryptoki = g_pCryptoki;
        key.hSession = Provider().hSession;
    }

    // Reads one attribute of an object on the provider's session.
    Bytes Attribute(CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type) const {
        CK_ATTRIBUTE attribute = {type, nullptr, 0};
        CK_FUNCTION_LIST& token = *g_pCryptoki->functions();
        if (token.C_GetAttributeValue(Provider().hSession, object, &attribute, 1) != CKR_OK)
            return {};
        Bytes value(attribute.ulValueLen);
        attribute.pValue = value.data();
        token.C_GetAttributeValue(Provider().hSession, object, &attribute, 1);
        return value;
    }

    static CK_BBOOL Flag(const Bytes& value) { return value.size() == 1 ? value[0] : 0xFF; }
};

}  // namespace

TEST_F(TokenObjectModel, PublicKeyObjectsCarryTheirComponentsAndUsage) {
    RsaComponents rsa(1024);
    Bytes id(64, 0x5A);
    for (int usage : {0, 1, 2}) {
        PublicKey key;
        Bind(key);
        key.SetModulus(rsa.modulus.data(), static_cast<uint32_t>(rsa.modulus.size()));
        key.SetPublicExponent(rsa.exponent);
        key.SetId(id.data());
        ASSERT_EQ(key.CreatePublicKeyObject(usage, reinterpret_cast<const uint8_t*>("lbl"), 3),
                  CKR_OK);
        EXPECT_EQ(key.dwModulusBits, 1024u);
        CK_OBJECT_HANDLE object = key.GetHandle();
        ASSERT_NE(object, 0u);
        EXPECT_EQ(Attribute(object, CKA_ID), id);
        EXPECT_EQ(Attribute(object, CKA_LABEL), BytesOf("lbl"));
        EXPECT_EQ(Attribute(object, CKA_MODULUS), rsa.modulus);
        EXPECT_EQ(Attribute(object, CKA_PUBLIC_EXPONENT), Bytes(rsa.exponent, rsa.exponent + 4));
        EXPECT_EQ(Flag(Attribute(object, CKA_TOKEN)), CK_TRUE);
        EXPECT_EQ(Flag(Attribute(object, CKA_ENCRYPT)), usage != 1 ? CK_TRUE : CK_FALSE);
        EXPECT_EQ(Flag(Attribute(object, CKA_VERIFY)), usage != 0 ? CK_TRUE : CK_FALSE);
        EXPECT_EQ(key.CreatePublicKeyObject(usage, nullptr, 0), CKR_ARGUMENTS_BAD)
            << "one instance makes one object";
        EXPECT_EQ(key.Destroy(), CKR_OK);
        EXPECT_EQ(key.GetHandle(), 0u);
        EXPECT_TRUE(Attribute(object, CKA_ID).empty()) << "gone from the token";
    }

    PublicKey session;
    Bind(session);
    session.SetModulus(rsa.modulus.data(), 128);
    session.SetPublicExponent(rsa.exponent);
    session.SetId(id.data());
    ASSERT_EQ(session.CreatePublicKeyObject(2, nullptr, 0), CKR_OK);
    EXPECT_EQ(Flag(Attribute(session.GetHandle(), CKA_TOKEN)), CK_FALSE) << "no label";
    CK_OBJECT_HANDLE left = session.GetHandle();
    {
        PublicKey copy;
        Bind(copy);
        copy.hObject = left;
    }
    EXPECT_EQ(Attribute(left, CKA_ID), id) << "deleting an instance leaves its object";
}

TEST_F(TokenObjectModel, CreationRefusesWhatTheTokenCannotTake) {
    RsaComponents rsa(1024);
    Bytes id(64, 1);
    PublicKey key;
    EXPECT_EQ(key.CreatePublicKeyObject(1, nullptr, 0), CKR_ARGUMENTS_BAD) << "not bound";
    Bind(key);
    EXPECT_EQ(key.CreatePublicKeyObject(1, nullptr, 0), CKR_ARGUMENTS_BAD) << "no length";
    key.SetModulus(rsa.modulus.data(), 96);
    EXPECT_EQ(key.dwModulusBits, 768u);
    EXPECT_EQ(key.CreatePublicKeyObject(1, nullptr, 0), CKR_ARGUMENTS_BAD) << "768 bits";
    key.SetModulus(rsa.modulus.data(), 128);
    EXPECT_EQ(key.CreatePublicKeyObject(1, nullptr, 0), CKR_TEMPLATE_INCOMPLETE);
    key.SetModulus(nullptr, 64);
    EXPECT_EQ(key.dwModulusBits, 1024u) << "an absent source changes nothing";

    PrivateKey secret;
    Bind(secret);
    secret.SetModulus(rsa.modulus.data(), 128);
    secret.SetPublicExponent(rsa.exponent);
    secret.SetId(id.data());
    secret.SetPrimes(rsa.prime1.data(), 64, nullptr, 64);
    EXPECT_FALSE(secret.pbPrime1) << "both primes or neither";
    EXPECT_EQ(secret.CreatePrivateKeyObject(2, nullptr, 0), CKR_TEMPLATE_INCOMPLETE);

    key.bModifiable = 2;
    key.bToken = 1;
    EXPECT_FALSE(key.IsModifiable());
    EXPECT_TRUE(key.IsToken());
    EXPECT_EQ(key.Destroy(), CKR_ARGUMENTS_BAD) << "no object yet";
}

TEST_F(TokenObjectModel, PrivateKeyObjectsFromCrtComponentsSignForTheirPublicKey) {
    RsaComponents rsa(1024);
    TokenObjects login(*g_pCryptoki);
    Bytes id(64, 0x22);
    PrivateKey key;
    Bind(key);
    key.SetModulus(rsa.modulus.data(), static_cast<uint32_t>(rsa.modulus.size()));
    key.SetPublicExponent(rsa.exponent);
    key.SetId(id.data());
    key.SetPrimes(rsa.prime1.data(), static_cast<uint32_t>(rsa.prime1.size()), rsa.prime2.data(),
                  static_cast<uint32_t>(rsa.prime2.size()));
    key.SetExponents(rsa.exponent1.data(), static_cast<uint32_t>(rsa.exponent1.size()),
                     rsa.exponent2.data(), static_cast<uint32_t>(rsa.exponent2.size()));
    key.SetCoefficient(rsa.coefficient.data(), static_cast<uint32_t>(rsa.coefficient.size()));
    ASSERT_EQ(key.CreatePrivateKeyObject(1, reinterpret_cast<const uint8_t*>("imported"), 8),
              CKR_OK);
    CK_OBJECT_HANDLE object = key.GetHandle();
    EXPECT_EQ(Attribute(object, CKA_MODULUS), rsa.modulus);
    EXPECT_EQ(Flag(Attribute(object, CKA_SIGN)), CK_TRUE);
    EXPECT_EQ(Flag(Attribute(object, CKA_DECRYPT)), CK_FALSE);

    // A raw signature checked by hand: s^e mod n must give back the input.
    CK_FUNCTION_LIST& token = *g_pCryptoki->functions();
    CK_MECHANISM mechanism = {CKM_RSA_X_509, nullptr, 0};
    Bytes message(128, 0);
    message[127] = 42;
    Bytes signature(128);
    CK_ULONG length = signature.size();
    ASSERT_EQ(token.C_SignInit(Provider().hSession, &mechanism, object), CKR_OK);
    ASSERT_EQ(token.C_Sign(Provider().hSession, message.data(), message.size(), signature.data(),
                           &length),
              CKR_OK);
    BN_CTX* context = BN_CTX_new();
    BIGNUM* s = BN_bin2bn(signature.data(), static_cast<int>(length), nullptr);
    BIGNUM* n = BN_bin2bn(rsa.modulus.data(), static_cast<int>(rsa.modulus.size()), nullptr);
    BIGNUM* e = BN_bin2bn(rsa.exponent, 4, nullptr);
    BIGNUM* m = BN_new();
    BN_mod_exp(m, s, e, n, context);
    EXPECT_EQ(BN_get_word(m), 42u);
    BN_free(m);
    BN_free(e);
    BN_free(n);
    BN_free(s);
    BN_CTX_free(context);
}
