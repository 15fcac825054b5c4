// The provider's list of the token's keys: one entry per RSA key, made by
// pairing the token's public and private key objects through their CKA_ID.
// Entries are key contexts named after the CKA_ID. The list is built on
// demand and changes only when it is built again, so keys created, imported
// or deleted in the meantime are not seen until the next enumeration.
#pragma once

#include "platform/wide_string.h"
#include "provider/ncrypt_provider.h"

struct QUELMKSP_PROVIDER;
struct QUELMKSP_KEY;
class CryptokiLibrary;

// Builds the list anew from the token.
SECURITY_STATUS InitializeObjectList(QUELMKSP_PROVIDER& provider, CryptokiLibrary& cryptoki);

// Copies the first entry that the name selects into destination, building
// the list first when it is empty. NTE_BAD_KEYSET when no entry matches.
SECURITY_STATUS FindQULMKSPKeyfromObjectList(QUELMKSP_PROVIDER& provider,
                                             const platform::WideChar* keyName,
                                             QUELMKSP_KEY& destination);

// Moves the record into the list as its new last entry and releases it.
void AppendKeyToList(QUELMKSP_PROVIDER& provider, QUELMKSP_KEY* record);

// Releases the list and every entry in it.
void DiscardObjectList(QUELMKSP_PROVIDER& provider);
