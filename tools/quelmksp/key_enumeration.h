// The names EnumKeys lists, in its order.
#pragma once

#include <vector>

#include "platform/wide_string.h"
#include "provider_session.h"

// Throws ClientError when the keys cannot be listed.
std::vector<platform::WideString> ListKeyNames(const ProviderSession& session);
