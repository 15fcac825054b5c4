#include "private_key_access.h"

namespace quelm {

std::optional<CK_OBJECT_CLASS> object_class(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                                            CK_OBJECT_HANDLE object) {
    CK_OBJECT_CLASS value = 0;
    CK_ATTRIBUTE query{CKA_CLASS, &value, sizeof value};
    if (backend.C_GetAttributeValue(session, object, &query, 1) != CKR_OK) return std::nullopt;
    return value;
}

bool user_logged_in(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session) {
    CK_SESSION_INFO info{};
    if (backend.C_GetSessionInfo(session, &info) != CKR_OK) return false;
    return info.state == CKS_RO_USER_FUNCTIONS || info.state == CKS_RW_USER_FUNCTIONS;
}

CK_RV require_login_for_private_key(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                                    CK_OBJECT_HANDLE key) {
    if (object_class(backend, session, key) != CKO_PRIVATE_KEY) return CKR_OK;
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
