#pragma once

#include <p11-kit/pkcs11.h>

#include "attribute_template.h"

namespace quelm {

// Fills in the private exponent, and any CRT value that is missing, of an RSA private key given
// by its primes and public exponent. A key whose primes do not multiply to its modulus gets
// CKR_ATTRIBUTE_VALUE_INVALID. A template that already has a private exponent, or lacks the
// primes, is left as it is.
CK_RV complete_rsa_private_key(AttributeTemplate& key);

}  // namespace quelm
