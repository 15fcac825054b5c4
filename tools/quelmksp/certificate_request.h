// A PKCS#10 certificate request whose signature comes from elsewhere (the
// token): OpenSSL builds and encodes it on Linux; the Windows client does
// not offer requests.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "distinguished_name.h"
#include "hashing.h"
#include "rsa_public_key.h"
#include "secret_bytes.h"

class CertificateRequest {
public:
    // Hashes of the to-be-signed part, in, and the PKCS#1 v1.5 signature, out.
    using Signer = std::function<std::vector<uint8_t>(const std::vector<uint8_t>& hash)>;

    // Checks the subject before anything else happens: throws UsageError
    // for an attribute type OpenSSL does not know, and ClientError
    // (exit_code::kUnavailable) in the Windows client.
    CertificateRequest(const std::vector<NameAttribute>& subject, HashAlgorithm hash);
    ~CertificateRequest();
    CertificateRequest(const CertificateRequest&) = delete;
    CertificateRequest& operator=(const CertificateRequest&) = delete;

    // The request for key, signed by sign, in PEM. Throws ClientError when
    // the signature does not verify under key.
    SecretBytes SignedPem(const RsaPublicKey& key, const Signer& sign);

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};
