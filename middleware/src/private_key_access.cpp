#include "private_key_access.h"

namespace quelm {

std::optional<CK_OBJECT_CLASS> object_class(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                                            CK_OBJECT_HANDLE object) {
    CK_OBJECT_CLASS value = 0;
    CK_ATTRIBUTE query{CKA_CLASS, &value, sizeof value};
    if (backend.C_GetAttributeValue(session, object, &query, 1) != CKR_OK) return std::nullopt;
    return value;
}

KeyFacts key_facts(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object) {
    CK_OBJECT_CLASS value = 0;
    CK_ATTRIBUTE query[] = {{CKA_CLASS, &value, sizeof value}, {CKA_MODULUS, nullptr, 0}};
    const CK_RV rv = backend.C_GetAttributeValue(session, object, query, 2);
    // An object without a modulus fails the call for that attribute alone.
    const bool per_attribute = rv == CKR_ATTRIBUTE_TYPE_INVALID || rv == CKR_ATTRIBUTE_SENSITIVE ||
                               rv == CKR_BUFFER_TOO_SMALL;
    KeyFacts facts;
    if (rv != CKR_OK && !(per_attribute && query[0].ulValueLen == sizeof value)) return facts;
    facts.object_class = value;
    if (query[1].ulValueLen != CK_UNAVAILABLE_INFORMATION)
        facts.modulus_length = query[1].ulValueLen;
    return facts;
}

bool user_logged_in(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session) {
    CK_SESSION_INFO info{};
    if (backend.C_GetSessionInfo(session, &info) != CKR_OK) return false;
    return info.state == CKS_RO_USER_FUNCTIONS || info.state == CKS_RW_USER_FUNCTIONS;
}

CK_RV require_login_for_private_key(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                                    CK_OBJECT_HANDLE key) {
    return require_login_for_private_key(backend, session, object_class(backend, session, key));
}

CK_RV require_login_for_private_key(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                                    std::optional<CK_OBJECT_CLASS> key_class) {
    if (key_class != CKO_PRIVATE_KEY) return CKR_OK;
    return user_logged_in(backend, session) ? CKR_OK : CKR_USER_NOT_LOGGED_IN;
}

bool is_private_component(CK_ATTRIBUTE_TYPE type) {
    switch (type) {
        case CKA_PRIVATE_EXPONENT:
        case CKA_PRIME_1:
        case CKA_PRIME_2:
        case CKA_EXPONENT_1:
        case CKA_EXPONENT_2:
        case CKA_COEFFICIENT:
        case CKA_VALUE:
            return true;
        default:
            return false;
    }
}

}  // namespace quelm
