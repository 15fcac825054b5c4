#include "template_rules.h"

#include "rsa_key_completion.h"
#include "template_check.h"

namespace quelm {
namespace {

void default_ulong(AttributeTemplate& object, CK_ATTRIBUTE_TYPE type, CK_ULONG value) {
    if (!object.find(type)) object.set_ulong(type, value);
}

// CKA_EXTRACTABLE belongs to private and secret keys only, and a standard token refuses it
// elsewhere; public keys and certificates are readable by nature, so it says nothing there.
void drop_extractable(AttributeTemplate& object) {
    object.remove(CKA_EXTRACTABLE);
}

}  // namespace

CK_RV prepare_new_object(AttributeTemplate& object) {
    const auto object_class = object.ulong_value(CKA_CLASS);
    if (!object_class) return check_template(object, CKO_VENDOR_DEFINED, TemplatePurpose::kCreate);
    switch (*object_class) {
        case CKO_PUBLIC_KEY:
            default_ulong(object, CKA_KEY_TYPE, CKK_RSA);
            if (object.ulong_value(CKA_KEY_TYPE) == CKK_RSA) {
                object.remove(CKA_MODULUS_BITS);
                drop_extractable(object);
            }
            break;
        case CKO_PRIVATE_KEY:
            default_ulong(object, CKA_KEY_TYPE, CKK_RSA);
            if (object.ulong_value(CKA_KEY_TYPE) == CKK_RSA) {
                object.remove(CKA_MODULUS_BITS);
                if (const CK_RV rv = complete_rsa_private_key(object); rv != CKR_OK) return rv;
            }
            object.set_bool(CKA_PRIVATE, CK_FALSE);
            break;
        case CKO_CERTIFICATE:
            default_ulong(object, CKA_CERTIFICATE_TYPE, CKC_X_509);
            if (object.ulong_value(CKA_CERTIFICATE_TYPE) == CKC_X_509) {
                object.remove(CKA_OBJECT_ID);
                drop_extractable(object);
            }
            break;
        default:
            break;
    }
    return check_template(object, *object_class, TemplatePurpose::kCreate);
}

CK_RV prepare_key_pair(const CK_MECHANISM& mechanism, AttributeTemplate& public_key,
                       AttributeTemplate& private_key) {
    for (AttributeTemplate* key : {&public_key, &private_key}) {
        key->remove_if_null(CKA_MODULUS);
        key->remove(CKA_LOCAL);
        if (mechanism.mechanism == CKM_RSA_PKCS_KEY_PAIR_GEN)
            default_ulong(*key, CKA_KEY_TYPE, CKK_RSA);
    }
    if (public_key.ulong_value(CKA_KEY_TYPE) == CKK_RSA) drop_extractable(public_key);
    private_key.set_bool(CKA_PRIVATE, CK_FALSE);
    if (const CK_RV rv = check_template(public_key, CKO_PUBLIC_KEY, TemplatePurpose::kGenerate);
        rv != CKR_OK) {
        return rv;
    }
    return check_template(private_key, CKO_PRIVATE_KEY, TemplatePurpose::kGenerate);
}

void prepare_unwrapped_key(AttributeTemplate& key) {
    if (key.ulong_value(CKA_CLASS) == CKO_PRIVATE_KEY) key.set_bool(CKA_PRIVATE, CK_FALSE);
}

}  // namespace quelm
