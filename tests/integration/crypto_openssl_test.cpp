#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/x509.h>

#include "crypto/digest_info.h"
#include "keys/key_context.h"
#include "support/openssl_rsa_key.h"
#include "support/pin_dialog_fixture.h"
#include "support/token_objects.h"

namespace {

using Bytes = std::vector<uint8_t>;

// The DER DigestInfo as OpenSSL encodes it, independent of the provider's
// prefix table.
Bytes OpenSslDigestInfo(const EVP_MD* md, const Bytes& hash) {
    X509_SIG* sig = X509_SIG_new();
    X509_ALGOR* algorithm = nullptr;
    ASN1_OCTET_STRING* digest = nullptr;
    X509_SIG_getm(sig, &algorithm, &digest);
    X509_ALGOR_set0(algorithm, OBJ_nid2obj(EVP_MD_get_type(md)), V_ASN1_NULL, nullptr);
    ASN1_OCTET_STRING_set(digest, hash.data(), static_cast<int>(hash.size()));
    unsigned char* der = nullptr;
    int length = i2d_X509_SIG(sig, &der);
    Bytes out(der, der + length);
    OPENSSL_free(der);
    X509_SIG_free(sig);
    return out;
}

class CryptoWithOpenSsl : public PinDialog {
protected:
    void SetUp() override {
        PinDialog::SetUp();
        TokenObjects token(*g_pCryptoki);
        auto pair = token.Generate(BytesOf("k1"), BytesOf("k1"));
        publicKey_ = PublicKeyOf(pair.publicKey);
        NewScript().Type(WIDE("1234")).ClickOk();
        ASSERT_EQ(table_->OpenKey(provider_, &key_, WIDE("k1"), 0, 0), 0);
    }
    void TearDown() override {
        EVP_PKEY_free(publicKey_);
        table_->FreeKey(provider_, key_);
        PinDialog::TearDown();
    }

    EVP_PKEY* PublicKeyOf(CK_OBJECT_HANDLE object) {
        Bytes n(256), e(8);
        CK_ATTRIBUTE read[] = {{CKA_MODULUS, n.data(), static_cast<CK_ULONG>(n.size())},
                               {CKA_PUBLIC_EXPONENT, e.data(), static_cast<CK_ULONG>(e.size())}};
        g_pCryptoki->functions()->C_GetAttributeValue(Provider().hSession, object, read, 2);
        return OpenSslRsaPublicKey(n.data(), read[0].ulValueLen, e.data(), read[1].ulValueLen);
    }

    // What OpenSSL finds inside a signature with the public key.
    Bytes Recover(const Bytes& signature) {
        EVP_PKEY_CTX* context = EVP_PKEY_CTX_new(publicKey_, nullptr);
        EVP_PKEY_verify_recover_init(context);
        EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING);
        Bytes out(256);
        size_t length = out.size();
        if (EVP_PKEY_verify_recover(context, out.data(), &length, signature.data(),
                                    signature.size()) != 1)
            length = 0;
        EVP_PKEY_CTX_free(context);
        out.resize(length);
        return out;
    }

    Bytes Sign(const Bytes& hash) {
        Bytes signature(128);
        DWORD length = 0;
        EXPECT_EQ(
            table_->SignHash(provider_, key_, nullptr, const_cast<uint8_t*>(hash.data()),
                             static_cast<DWORD>(hash.size()), signature.data(), 128, &length, 0),
            0);
        signature.resize(length);
        return signature;
    }

    EVP_PKEY* publicKey_ = nullptr;
    NCRYPT_KEY_HANDLE key_ = 0;
};

}  // namespace

TEST(DigestInfoTable, PrefixesAreTheDerThatOpenSslEncodes) {
    struct Row {
        const EVP_MD* md;
        size_t length;
    };
    for (Row row :
         {Row{EVP_md5(), 16}, Row{EVP_sha1(), 20}, Row{EVP_sha256(), 32}, Row{EVP_sha512(), 64}}) {
        Bytes hash(row.length, 0x5C);
        auto framed = digest_info::ForSigning(hash);
        ASSERT_TRUE(framed);
        EXPECT_EQ(*framed, OpenSslDigestInfo(row.md, hash)) << row.length;
    }
}

TEST_F(CryptoWithOpenSsl, OpenSslFindsTheExpectedDigestInfoInEverySignature) {
    struct Case {
        const EVP_MD* md;
        size_t hashLength;
    };
    for (Case c : {Case{EVP_md5(), 16}, Case{EVP_sha1(), 20}, Case{EVP_sha256(), 32},
                   Case{EVP_sha512(), 64}}) {
        Bytes hash(c.hashLength, static_cast<uint8_t>(c.hashLength + 3));
        Bytes expected = OpenSslDigestInfo(c.md, hash);
        EXPECT_EQ(Recover(Sign(hash)), expected) << "bare " << c.hashLength;
        EXPECT_EQ(Recover(Sign(expected)), expected) << "framed " << expected.size();
    }
    Bytes tls(36, 0x36);
    EXPECT_EQ(Recover(Sign(tls)), tls) << "MD5 and SHA-1 side by side, no prefix";
}
