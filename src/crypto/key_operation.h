// What every cryptographic operation on a key shares: the handle checks in
// their order, the login, and the short-lived RSAPair on the provider's
// session.
#pragma once

#include <memory>

#include "keys/key_context.h"
#include "provider/operation_frame.h"
#include "provider/provider_context.h"
#include "token/rsa_pair.h"

// Checks the provider handle, then the key handle. 0 with both records, or
// the failure already traced.
SECURITY_STATUS CheckKeyHandles(OperationFrame& frame, NCRYPT_PROV_HANDLE hProvider,
                                NCRYPT_KEY_HANDLE hKey, QUELMKSP_PROVIDER** provider,
                                QUELMKSP_KEY** key);

// Gets the provider's session logged in; a failure is traced.
SECURITY_STATUS LogInForOperation(OperationFrame& frame, QUELMKSP_PROVIDER& provider);

// A pair that works in the provider's session on a key of that length;
// null when memory runs out.
std::unique_ptr<RSAPair> PairOnSession(const QUELMKSP_PROVIDER& provider, const QUELMKSP_KEY& key);

inline constexpr const char* kBadFlags =
    "The dwFlags parameter contains a value that is not valid.";
inline constexpr const char* kNotFinalized = "The specified key is not yet finalized";
