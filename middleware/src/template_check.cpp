#include "template_check.h"

#include <algorithm>
#include <initializer_list>

namespace quelm {
namespace {

using Types = std::initializer_list<CK_ATTRIBUTE_TYPE>;

constexpr Types kStorage = {CKA_CLASS, CKA_TOKEN,    CKA_PRIVATE,    CKA_MODIFIABLE,
                            CKA_LABEL, CKA_COPYABLE, CKA_DESTROYABLE};
constexpr Types kKey = {CKA_KEY_TYPE, CKA_ID,    CKA_START_DATE,        CKA_END_DATE,
                        CKA_DERIVE,   CKA_LOCAL, CKA_KEY_GEN_MECHANISM, CKA_ALLOWED_MECHANISMS};
constexpr Types kRsaPublic = {CKA_SUBJECT,         CKA_ENCRYPT,        CKA_VERIFY,
                              CKA_VERIFY_RECOVER,  CKA_WRAP,           CKA_TRUSTED,
                              CKA_WRAP_TEMPLATE,   CKA_MODULUS,        CKA_MODULUS_BITS,
                              CKA_PUBLIC_EXPONENT, CKA_PUBLIC_KEY_INFO};
constexpr Types kRsaPrivate = {CKA_SUBJECT,           CKA_SENSITIVE,
                               CKA_DECRYPT,           CKA_SIGN,
                               CKA_SIGN_RECOVER,      CKA_UNWRAP,
                               CKA_EXTRACTABLE,       CKA_ALWAYS_SENSITIVE,
                               CKA_NEVER_EXTRACTABLE, CKA_WRAP_WITH_TRUSTED,
                               CKA_UNWRAP_TEMPLATE,   CKA_ALWAYS_AUTHENTICATE,
                               CKA_MODULUS,           CKA_PUBLIC_EXPONENT,
                               CKA_PRIVATE_EXPONENT,  CKA_PRIME_1,
                               CKA_PRIME_2,           CKA_EXPONENT_1,
                               CKA_EXPONENT_2,        CKA_COEFFICIENT,
                               CKA_PUBLIC_KEY_INFO};
constexpr Types kX509 = {CKA_CERTIFICATE_TYPE,
                         CKA_TRUSTED,
                         CKA_CERTIFICATE_CATEGORY,
                         CKA_CHECK_VALUE,
                         CKA_START_DATE,
                         CKA_END_DATE,
                         CKA_SUBJECT,
                         CKA_ID,
                         CKA_ISSUER,
                         CKA_SERIAL_NUMBER,
                         CKA_VALUE,
                         CKA_URL,
                         CKA_HASH_OF_SUBJECT_PUBLIC_KEY,
                         CKA_HASH_OF_ISSUER_PUBLIC_KEY,
                         CKA_JAVA_MIDP_SECURITY_DOMAIN,
                         CKA_NAME_HASH_ALGORITHM,
                         CKA_PUBLIC_KEY_INFO};

// Set by the token alone, for created and generated objects alike.
constexpr Types kTokenSet = {CKA_LOCAL, CKA_KEY_GEN_MECHANISM, CKA_ALWAYS_SENSITIVE,
                             CKA_NEVER_EXTRACTABLE};
// Values that a key-pair generation makes; a template may not give them.
constexpr Types kGenerated = {CKA_MODULUS,    CKA_PRIVATE_EXPONENT, CKA_PRIME_1,    CKA_PRIME_2,
                              CKA_EXPONENT_1, CKA_EXPONENT_2,       CKA_COEFFICIENT};

constexpr Types kBooleans = {CKA_TOKEN,
                             CKA_PRIVATE,
                             CKA_MODIFIABLE,
                             CKA_COPYABLE,
                             CKA_DESTROYABLE,
                             CKA_DERIVE,
                             CKA_LOCAL,
                             CKA_ENCRYPT,
                             CKA_VERIFY,
                             CKA_VERIFY_RECOVER,
                             CKA_WRAP,
                             CKA_TRUSTED,
                             CKA_SENSITIVE,
                             CKA_DECRYPT,
                             CKA_SIGN,
                             CKA_SIGN_RECOVER,
                             CKA_UNWRAP,
                             CKA_EXTRACTABLE,
                             CKA_ALWAYS_SENSITIVE,
                             CKA_NEVER_EXTRACTABLE,
                             CKA_WRAP_WITH_TRUSTED,
                             CKA_ALWAYS_AUTHENTICATE};
constexpr Types kUlongs = {CKA_CLASS,
                           CKA_KEY_TYPE,
                           CKA_CERTIFICATE_TYPE,
                           CKA_MODULUS_BITS,
                           CKA_KEY_GEN_MECHANISM,
                           CKA_CERTIFICATE_CATEGORY,
                           CKA_JAVA_MIDP_SECURITY_DOMAIN,
                           CKA_NAME_HASH_ALGORITHM};

bool contains(Types types, CK_ATTRIBUTE_TYPE type) {
    return std::find(types.begin(), types.end(), type) != types.end();
}

CK_RV check_shape(const CK_ATTRIBUTE& attribute) {
    if (!attribute.pValue) return attribute.ulValueLen ? CKR_ATTRIBUTE_VALUE_INVALID : CKR_OK;
    if (contains(kBooleans, attribute.type)) {
        if (attribute.ulValueLen != sizeof(CK_BBOOL)) return CKR_ATTRIBUTE_VALUE_INVALID;
        const CK_BBOOL value = *static_cast<const CK_BBOOL*>(attribute.pValue);
        if (value != CK_TRUE && value != CK_FALSE) return CKR_ATTRIBUTE_VALUE_INVALID;
    }
    if (contains(kUlongs, attribute.type) && attribute.ulValueLen != sizeof(CK_ULONG)) {
        return CKR_ATTRIBUTE_VALUE_INVALID;
    }
    if ((attribute.type == CKA_START_DATE || attribute.type == CKA_END_DATE) &&
        attribute.ulValueLen != 0 && attribute.ulValueLen != sizeof(CK_DATE)) {
        return CKR_ATTRIBUTE_VALUE_INVALID;
    }
    return CKR_OK;
}

CK_RV check_members(const AttributeTemplate& object, Types kind, Types specific) {
    for (const CK_ATTRIBUTE& attribute : object.attributes()) {
        if (!contains(kStorage, attribute.type) && !contains(kind, attribute.type) &&
            !contains(specific, attribute.type)) {
            return CKR_ATTRIBUTE_TYPE_INVALID;
        }
    }
    return CKR_OK;
}

CK_RV check_required(const AttributeTemplate& object, Types required) {
    for (const CK_ATTRIBUTE_TYPE type : required) {
        if (!object.find(type)) return CKR_TEMPLATE_INCOMPLETE;
    }
    return CKR_OK;
}

CK_RV check_rsa_key(const AttributeTemplate& object, CK_OBJECT_CLASS object_class,
                    TemplatePurpose purpose) {
    const bool is_public = object_class == CKO_PUBLIC_KEY;
    if (const CK_RV rv = check_members(object, kKey, is_public ? kRsaPublic : kRsaPrivate);
        rv != CKR_OK) {
        return rv;
    }
    if (purpose == TemplatePurpose::kGenerate) {
        for (const CK_ATTRIBUTE& attribute : object.attributes()) {
            if (contains(kGenerated, attribute.type)) return CKR_ATTRIBUTE_READ_ONLY;
        }
        if (!is_public && object.find(CKA_PUBLIC_EXPONENT)) return CKR_ATTRIBUTE_READ_ONLY;
        return is_public ? check_required(object, {CKA_MODULUS_BITS}) : CKR_OK;
    }
    if (object.find(CKA_MODULUS_BITS)) return CKR_ATTRIBUTE_READ_ONLY;
    return is_public ? check_required(object, {CKA_MODULUS, CKA_PUBLIC_EXPONENT})
                     : check_required(object, {CKA_MODULUS, CKA_PRIVATE_EXPONENT});
}

}  // namespace

CK_RV check_template(const AttributeTemplate& object, CK_OBJECT_CLASS object_class,
                     TemplatePurpose purpose) {
    for (const CK_ATTRIBUTE& attribute : object.attributes()) {
        if (const CK_RV rv = check_shape(attribute); rv != CKR_OK) return rv;
        if (contains(kTokenSet, attribute.type)) return CKR_ATTRIBUTE_READ_ONLY;
    }
    if (const auto stated = object.ulong_value(CKA_CLASS); stated && *stated != object_class) {
        return CKR_TEMPLATE_INCONSISTENT;
    }
    const auto key_type = object.ulong_value(CKA_KEY_TYPE);
    switch (object_class) {
        case CKO_PUBLIC_KEY:
        case CKO_PRIVATE_KEY:
            if (key_type != CKK_RSA) return CKR_OK;
            return check_rsa_key(object, object_class, purpose);
        case CKO_CERTIFICATE:
            if (object.ulong_value(CKA_CERTIFICATE_TYPE) != CKC_X_509) return CKR_OK;
            if (const CK_RV rv = check_members(object, {}, kX509); rv != CKR_OK) return rv;
            return check_required(object, {CKA_SUBJECT, CKA_VALUE});
        default:
            return CKR_OK;
    }
}

}  // namespace quelm
