// The branch of FinalizeKey that puts imported key material on the token.
#pragma once

#include "keys/key_context.h"
#include "keys/key_creation.h"
#include "provider/operation_frame.h"
#include "provider/provider_context.h"

// Creates the public and the private key object from the components that
// the import left in the key context, under a fresh random 64-byte CKA_ID,
// and leaves their handles in the key context. 0, or the failure already
// traced.
SECURITY_STATUS FinalizeImportedKey(OperationFrame& frame, const QUELMKSP_PROVIDER& provider,
                                    QUELMKSP_KEY& key, const TokenLabel& label);
