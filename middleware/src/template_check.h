#pragma once

#include <p11-kit/pkcs11.h>

#include "attribute_template.h"

namespace quelm {

enum class TemplatePurpose { kCreate, kGenerate };

// Refuses, before anything reaches the backend, a template that a token would reject part-way:
// a backend that fails after it has started to store an object may leave the half-made object
// behind. Attribute sets are checked for RSA keys and X.509 certificates; the value shapes of
// well-known attributes for every object.
CK_RV check_template(const AttributeTemplate& object, CK_OBJECT_CLASS object_class,
                     TemplatePurpose purpose);

}  // namespace quelm
