#include "certificate_request.h"
#include "client_error.h"

struct CertificateRequest::Parts {};

CertificateRequest::CertificateRequest(const std::vector<NameAttribute>&, HashAlgorithm) {
    throw ClientError(exit_code::kUnavailable,
                      "certificate requests are not available in the Windows client");
}

CertificateRequest::~CertificateRequest() = default;

SecretBytes CertificateRequest::SignedPem(const RsaPublicKey&, const Signer&) {
    return {};
}
