#pragma once

#include "provider/ncrypt_provider.h"

struct QUELMKSP_PROVIDER;

// Gets the provider's session logged in as the user: with the PIN cached
// for its token, or else through the PIN dialog. 0 on success.
SECURITY_STATUS Login(QUELMKSP_PROVIDER* provider);
