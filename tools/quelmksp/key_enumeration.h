// The names EnumKeys lists, in its order.
#pragma once

#include <optional>
#include <vector>

#include "platform/wide_string.h"
#include "provider_session.h"
#include "rsa_public_key.h"

// Throws ClientError when the keys cannot be listed.
std::vector<platform::WideString> ListKeyNames(const ProviderSession& session);

// The name that EnumKeys lists for the key whose public key is wanted,
// checked by opening the key under it; nullopt when no listed name opens
// it. Keys the token made or took in are listed under their CKA_ID, not
// under the name they were given.
std::optional<platform::WideString> ListedNameOf(const ProviderSession& session,
                                                 const RsaPublicKey& wanted);
