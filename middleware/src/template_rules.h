#pragma once

#include <p11-kit/pkcs11.h>

#include "attribute_template.h"

namespace quelm {

// Turns a C_CreateObject template as a card middleware accepts it into one that a standard token
// accepts, then checks it. Private keys are stored with CKA_PRIVATE FALSE so that they can be
// found before login.
CK_RV prepare_new_object(AttributeTemplate& object);

// The same for the two templates of C_GenerateKeyPair.
CK_RV prepare_key_pair(const CK_MECHANISM& mechanism, AttributeTemplate& public_key,
                       AttributeTemplate& private_key);

// The same for the template of a key that C_UnwrapKey creates.
void prepare_unwrapped_key(AttributeTemplate& key);

}  // namespace quelm
