#pragma once

#include <p11-kit/pkcs11.h>

namespace quelm {

// C_GetAttributeValue with two additions for private keys: CKA_MODULUS_BITS is answered from
// CKA_MODULUS, and the secret components stay sensitive until the user has logged in.
CK_RV get_attribute_value(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                          CK_OBJECT_HANDLE object, CK_ATTRIBUTE_PTR attributes, CK_ULONG count);

}  // namespace quelm
