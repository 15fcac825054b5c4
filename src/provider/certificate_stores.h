// The token's certificates as the two stores that the provider properties
// hand out: self-signed certificates, and the others.
#pragma once

#include "platform/certificates.h"
#include "provider/provider_context.h"

enum class StoreKind { kRoot, kUser };

// A new in-memory store with the certificates of the provider's keys whose
// issuer does (root) or does not (user) equal their subject. Null when the
// key list cannot be built or a certificate cannot be taken in. The caller
// closes it.
HCERTSTORE BuildCertificateStore(QUELMKSP_PROVIDER& provider, StoreKind kind);
