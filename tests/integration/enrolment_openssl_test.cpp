// The enrolment journey through the function table, checked by OpenSSL: a
// key made on the token signs what OpenSSL verifies with the exported public
// key, and a certificate issued for it comes back from the token intact.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <cstring>
#include <memory>

#include "keys/key_context.h"
#include "support/openssl_rsa_key.h"
#include "support/pin_dialog_fixture.h"
#include "support/token_objects.h"

namespace {

struct PkeyFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using Pkey = std::unique_ptr<EVP_PKEY, PkeyFree>;
struct X509Free {
    void operator()(X509* certificate) const { X509_free(certificate); }
};
using Certificate = std::unique_ptr<X509, X509Free>;

// The public key of an RSA public key blob, read as any caller reads it:
// the header's lengths, then the exponent and the modulus, big-endian.
Pkey KeyFromBlob(const Bytes& blob) {
    uint32_t cbExponent = 0, cbModulus = 0;
    std::memcpy(&cbExponent, blob.data() + 8, 4);
    std::memcpy(&cbModulus, blob.data() + 12, 4);
    return Pkey(OpenSslRsaPublicKey(blob.data() + 24 + cbExponent, cbModulus, blob.data() + 24,
                                    cbExponent));
}

// A certificate for the key, issued by a throw-away CA.
Bytes IssueCertificate(EVP_PKEY* subjectKey) {
    Pkey ca(EVP_RSA_gen(1024));
    Certificate certificate(X509_new());
    X509_set_version(certificate.get(), 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 0x1234);
    X509_NAME* subject = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>("Peña Enrolada"), -1, -1, 0);
    X509_NAME* issuer = X509_get_issuer_name(certificate.get());
    X509_NAME_add_entry_by_txt(issuer, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>("Demo CA"), -1, -1, 0);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
    X509_set_pubkey(certificate.get(), subjectKey);
    X509_sign(certificate.get(), ca.get(), EVP_sha256());
    unsigned char* der = nullptr;
    int length = i2d_X509(certificate.get(), &der);
    Bytes bytes(der, der + length);
    OPENSSL_free(der);
    return bytes;
}

class EnrolmentWithOpenSsl : public PinDialog {
protected:
    void SetUp() override {
        extraRegistry_ = "\"Default Key Length\"=dword:00000800\n";
        PinDialog::SetUp();
    }
};

}  // namespace

TEST_F(EnrolmentWithOpenSsl, ANewKeySignsAndCarriesItsIssuedCertificate) {
    NCRYPT_KEY_HANDLE key = 0;
    ASSERT_EQ(table_->CreatePersistedKey(provider_, &key, WIDE("RSA"), WIDE("enrolled"), 0, 0), 0);
    NewScript().Type(WIDE("1234")).ClickOk();
    ASSERT_EQ(table_->FinalizeKey(provider_, key, 0), 0);

    DWORD length = 0;
    ASSERT_EQ(table_->ExportKey(provider_, key, 0, WIDE("RSAPUBLICBLOB"), nullptr, nullptr, 0,
                                &length, 0),
              0);
    Bytes blob(length);
    ASSERT_EQ(table_->ExportKey(provider_, key, 0, WIDE("RSAPUBLICBLOB"), nullptr, blob.data(),
                                length, &length, 0),
              0);
    Pkey publicKey = KeyFromBlob(blob);
    ASSERT_TRUE(publicKey);
    EXPECT_EQ(EVP_PKEY_get_bits(publicKey.get()), 2048);
    BIGNUM* exponent = nullptr;
    EVP_PKEY_get_bn_param(publicKey.get(), OSSL_PKEY_PARAM_RSA_E, &exponent);
    EXPECT_TRUE(BN_is_word(exponent, 65537));
    BN_free(exponent);

    Bytes message = BytesOf("a certificate request, or anything else");
    Bytes hash(32);
    unsigned int hashLength = 0;
    EVP_Digest(message.data(), message.size(), hash.data(), &hashLength, EVP_sha256(), nullptr);
    DWORD signatureLength = 0;
    ASSERT_EQ(table_->SignHash(provider_, key, nullptr, hash.data(), 32, nullptr, 0,
                               &signatureLength, NCRYPT_PAD_PKCS1_FLAG),
              0);
    Bytes signature(signatureLength);
    ASSERT_EQ(table_->SignHash(provider_, key, nullptr, hash.data(), 32, signature.data(),
                               signatureLength, &signatureLength, NCRYPT_PAD_PKCS1_FLAG),
              0);
    EVP_MD_CTX* verify = EVP_MD_CTX_new();
    ASSERT_EQ(EVP_DigestVerifyInit(verify, nullptr, EVP_sha256(), nullptr, publicKey.get()), 1);
    EXPECT_EQ(EVP_DigestVerify(verify, signature.data(), signature.size(), message.data(),
                               message.size()),
              1)
        << "OpenSSL accepts the token's signature with the exported key";
    EVP_MD_CTX_free(verify);

    Bytes der = IssueCertificate(publicKey.get());
    ASSERT_EQ(table_->SetKeyProperty(provider_, key, WIDE("SmartCardKeyCertificate"), der.data(),
                                     static_cast<DWORD>(der.size()), 0),
              0);

    // The certificate is found through the name the key is listed under.
    TokenObjects token(*g_pCryptoki);
    Bytes id = token.Attribute(KeyRecord(key)->hPrivateKey, CKA_ID);
    std::vector<CK_OBJECT_HANDLE> certificates = token.Find(CKO_CERTIFICATE);
    ASSERT_EQ(certificates.size(), 1u);
    EXPECT_EQ(token.Attribute(certificates[0], CKA_ID), id);
    Bytes label = BytesOf(
        "Pe\xf1"
        "a Enrolada");
    label.push_back(0);
    EXPECT_EQ(token.Attribute(certificates[0], CKA_LABEL), label)
        << "the display name in the ANSI code page";

    NCRYPT_KEY_HANDLE opened = 0;
    platform::WideString listedName(id.begin(), id.end());
    ASSERT_EQ(table_->OpenKey(provider_, &opened, listedName.c_str(), 0, 0), 0);
    Bytes readBack(der.size());
    ASSERT_EQ(
        table_->GetKeyProperty(provider_, opened, WIDE("SmartCardKeyCertificate"), readBack.data(),
                               static_cast<DWORD>(readBack.size()), &length, 0),
        0);
    EXPECT_EQ(readBack, der);
    const unsigned char* cursor = readBack.data();
    Certificate parsed(d2i_X509(nullptr, &cursor, static_cast<long>(readBack.size())));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(EVP_PKEY_eq(X509_get0_pubkey(parsed.get()), publicKey.get()), 1);
    EXPECT_EQ(table_->FreeKey(provider_, opened), 0);
    EXPECT_EQ(table_->FreeKey(provider_, key), 0);
}
