#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/pem.h>

#include "certificate_request.h"
#include "client_error.h"
#include "crypto_objects_openssl.h"

namespace {

using X509ReqPtr = std::unique_ptr<X509_REQ, OpenSslDeleter<X509_REQ, X509_REQ_free>>;
using X509NamePtr = std::unique_ptr<X509_NAME, OpenSslDeleter<X509_NAME, X509_NAME_free>>;
using X509AlgorPtr = std::unique_ptr<X509_ALGOR, OpenSslDeleter<X509_ALGOR, X509_ALGOR_free>>;
using BitStringPtr =
    std::unique_ptr<ASN1_BIT_STRING, OpenSslDeleter<ASN1_BIT_STRING, ASN1_BIT_STRING_free>>;

int SignatureAlgorithm(HashAlgorithm hash) {
    switch (hash) {
        case HashAlgorithm::kSha256:
            return NID_sha256WithRSAEncryption;
        case HashAlgorithm::kSha384:
            return NID_sha384WithRSAEncryption;
        case HashAlgorithm::kSha512:
            return NID_sha512WithRSAEncryption;
        default:
            return NID_undef;
    }
}

[[noreturn]] void Fail(const std::string& what) {
    ERR_clear_error();
    throw ClientError(exit_code::kProvider, "OpenSSL could not " + what);
}

}  // namespace

struct CertificateRequest::Parts {
    X509ReqPtr request;
    HashAlgorithm hash;
};

CertificateRequest::CertificateRequest(const std::vector<NameAttribute>& subject,
                                       HashAlgorithm hash)
    : parts_(std::make_unique<Parts>(Parts{X509ReqPtr(X509_REQ_new()), hash})) {
    X509NamePtr name(X509_NAME_new());
    if (!parts_->request || !name) Fail("make a request");
    for (const NameAttribute& attribute : subject) {
        if (OBJ_txt2nid(attribute.type.c_str()) == NID_undef) {
            ERR_clear_error();
            throw UsageError("the subject's attribute type '" + attribute.type +
                             "' is unknown (CN, O, OU, C, L, ST, emailAddress, ...)");
        }
        if (!X509_NAME_add_entry_by_txt(
                name.get(), attribute.type.c_str(), MBSTRING_UTF8,
                reinterpret_cast<const unsigned char*>(attribute.value.data()),
                static_cast<int>(attribute.value.size()), -1, 0)) {
            ERR_clear_error();
            throw UsageError("the subject's " + attribute.type + " cannot take '" +
                             attribute.value + "' (too long, or not valid for the type)");
        }
    }
    // Version 1 of PKCS#10 is encoded as 0.
    if (!X509_REQ_set_version(parts_->request.get(), 0) ||
        !X509_REQ_set_subject_name(parts_->request.get(), name.get()))
        Fail("set the request's subject");
}

CertificateRequest::~CertificateRequest() = default;

SecretBytes CertificateRequest::SignedPem(const RsaPublicKey& key, const Signer& sign) {
    X509_REQ* request = parts_->request.get();
    EvpPkeyPtr pkey = NewRsaPublicKey(key);
    if (!pkey || !X509_REQ_set_pubkey(request, pkey.get()))
        Fail("put the public key in the request");
    X509AlgorPtr algorithm(X509_ALGOR_new());
    if (!algorithm ||
        !X509_ALGOR_set0(algorithm.get(), OBJ_nid2obj(SignatureAlgorithm(parts_->hash)),
                         V_ASN1_NULL, nullptr) ||
        !X509_REQ_set1_signature_algo(request, algorithm.get()))
        Fail("set the request's signature algorithm");

    unsigned char* tbs = nullptr;
    int tbsLength = i2d_re_X509_REQ_tbs(request, &tbs);
    if (tbsLength <= 0) Fail("encode the request");
    std::vector<uint8_t> hash = Hash(parts_->hash, tbs, static_cast<size_t>(tbsLength));
    OPENSSL_clear_free(tbs, static_cast<size_t>(tbsLength));

    std::vector<uint8_t> signature = sign(hash);
    BitStringPtr bits(ASN1_BIT_STRING_new());
    if (!bits ||
        !ASN1_BIT_STRING_set(bits.get(), signature.data(), static_cast<int>(signature.size())))
        Fail("take the signature");
    // A signature is whole bytes; without this OpenSSL would count the
    // trailing zero bits of the last byte as unused.
    bits->flags &= ~(ASN1_STRING_FLAG_BITS_LEFT | 0x07);
    bits->flags |= ASN1_STRING_FLAG_BITS_LEFT;
    X509_REQ_set0_signature(request, bits.release());

    if (X509_REQ_verify(request, pkey.get()) != 1) {
        ERR_clear_error();
        throw ClientError(exit_code::kProvider,
                          "the token's signature over the request does not verify with the key's "
                          "public key");
    }
    BioPtr bio = NewWipedMemoryBio();
    if (!bio || !PEM_write_bio_X509_REQ(bio.get(), request)) Fail("write the request as PEM");
    return BioContents(bio.get());
}
