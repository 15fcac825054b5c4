// OpenSSL objects owned the C++ way, and memory BIOs whose buffers are
// wiped when freed, for the client's *_openssl.cpp files.
#pragma once

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>
#include <optional>

#include "rsa_public_key.h"
#include "secret_bytes.h"

template <typename T, void (*Free)(T*)>
struct OpenSslDeleter {
    void operator()(T* object) const { Free(object); }
};

using BioPtr = std::unique_ptr<BIO, OpenSslDeleter<BIO, BIO_free_all>>;
using BignumPtr = std::unique_ptr<BIGNUM, OpenSslDeleter<BIGNUM, BN_clear_free>>;
using EvpPkeyPtr = std::unique_ptr<EVP_PKEY, OpenSslDeleter<EVP_PKEY, EVP_PKEY_free>>;
using X509Ptr = std::unique_ptr<X509, OpenSslDeleter<X509, X509_free>>;

// A memory BIO to write to, on OpenSSL's secure heap, which wipes it.
BioPtr NewWipedMemoryBio();

// What was written to it.
SecretBytes BioContents(BIO* bio);

// A read-only BIO over bytes the caller keeps.
BioPtr ReadingBio(const SecretBytes& bytes);

// Null when OpenSSL refuses the key.
EvpPkeyPtr NewRsaPublicKey(const RsaPublicKey& key);

// nullopt for a key that is not RSA.
std::optional<RsaPublicKey> RsaPublicKeyOf(const EVP_PKEY* pkey);
