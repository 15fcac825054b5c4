// X.509 certificates as the client takes them in and hands them out: PEM or
// DER from a file, DER on the token, PEM or DER to the user. OpenSSL on
// Linux, crypt32 on Windows; CMake picks the implementation.
#pragma once

#include <optional>
#include <string>

#include "rsa_public_key.h"
#include "secret_bytes.h"

// The DER of the certificate in a file's bytes, PEM or DER. Throws
// ClientError (exit_code::kData) when they hold no certificate.
SecretBytes CertificateDer(const SecretBytes& fileBytes);

// nullopt when the certificate's key is not an RSA key.
std::optional<RsaPublicKey> CertificatePublicKey(const SecretBytes& der);

// The subject as "CN=x, O=y", the attributes in the order they are encoded
// in; nullopt when der is not a certificate.
std::optional<std::string> CertificateSubject(const SecretBytes& der);

// What 'certs' shows of a certificate. Times are UTC, as
// "2025-01-31T12:00:00Z"; the serial is upper-case hexadecimal.
struct CertificateFacts {
    std::string subject;
    std::string issuer;
    std::string serial;
    std::string notBefore;
    std::string notAfter;
};

// nullopt when der is not a certificate.
std::optional<CertificateFacts> DescribeCertificate(const SecretBytes& der);

// Throws ClientError (exit_code::kData) when der is not a certificate.
SecretBytes CertificatePem(const SecretBytes& der);
