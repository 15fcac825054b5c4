// The token's certificate stores as the provider hands them out: a store
// handle in a provider property, which the caller enumerates and closes
// (crypt32 on Windows, libquelmcert's crypt32 functions on Linux).
#pragma once

#include <vector>

#include "provider_session.h"
#include "secret_bytes.h"

enum class CertificateStoreKind { kRoot, kUser };

// The DER of every certificate in the store, in the store's order. Throws
// ClientError when the property cannot be read or the provider could not
// build the store.
std::vector<SecretBytes> ReadCertificateStore(const ProviderSession& session,
                                              CertificateStoreKind kind);
