#include "attribute_reading.h"

#include <vector>

#include "private_key_access.h"

namespace quelm {
namespace {

// Returns 0 when the modulus cannot be read.
CK_ULONG modulus_bits(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                      CK_OBJECT_HANDLE object) {
    CK_ATTRIBUTE query{CKA_MODULUS, nullptr, 0};
    if (backend.C_GetAttributeValue(session, object, &query, 1) != CKR_OK) return 0;
    if (query.ulValueLen == 0 || query.ulValueLen == CK_UNAVAILABLE_INFORMATION) return 0;
    std::vector<CK_BYTE> modulus(query.ulValueLen);
    query.pValue = modulus.data();
    if (backend.C_GetAttributeValue(session, object, &query, 1) != CKR_OK) return 0;
    std::size_t first = 0;
    while (first < query.ulValueLen && modulus[first] == 0) ++first;
    if (first == query.ulValueLen) return 0;
    CK_ULONG bits = static_cast<CK_ULONG>(query.ulValueLen - first - 1) * 8;
    for (CK_BYTE top = modulus[first]; top; top >>= 1) ++bits;
    return bits;
}

CK_RV answer_modulus_bits(CK_ATTRIBUTE& attribute, CK_ULONG bits) {
    if (bits == 0) {
        attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
        return CKR_ATTRIBUTE_TYPE_INVALID;
    }
    if (!attribute.pValue) {
        attribute.ulValueLen = sizeof(CK_ULONG);
        return CKR_OK;
    }
    if (attribute.ulValueLen < sizeof(CK_ULONG)) {
        attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
        return CKR_BUFFER_TOO_SMALL;
    }
    *static_cast<CK_ULONG*>(attribute.pValue) = bits;
    attribute.ulValueLen = sizeof(CK_ULONG);
    return CKR_OK;
}

// These four may come from any attribute of a template; every other code ends the call.
bool is_per_attribute(CK_RV rv) {
    return rv == CKR_ATTRIBUTE_SENSITIVE || rv == CKR_ATTRIBUTE_TYPE_INVALID ||
           rv == CKR_BUFFER_TOO_SMALL;
}

}  // namespace

CK_RV get_attribute_value(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                          CK_OBJECT_HANDLE object, CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
    bool touches_private_key_rules = false;
    for (CK_ULONG i = 0; attributes && i < count; ++i) {
        const CK_ATTRIBUTE_TYPE type = attributes[i].type;
        if (type == CKA_MODULUS_BITS || is_private_component(type))
            touches_private_key_rules = true;
    }
    if (!touches_private_key_rules || object_class(backend, session, object) != CKO_PRIVATE_KEY) {
        return backend.C_GetAttributeValue(session, object, attributes, count);
    }

    const bool logged_in = user_logged_in(backend, session);
    std::vector<CK_ATTRIBUTE> forwarded;
    std::vector<CK_ULONG> forwarded_index;
    CK_RV own_rv = CKR_OK;
    for (CK_ULONG i = 0; i < count; ++i) {
        CK_ATTRIBUTE& attribute = attributes[i];
        CK_RV rv = CKR_OK;
        if (attribute.type == CKA_MODULUS_BITS) {
            rv = answer_modulus_bits(attribute, modulus_bits(backend, session, object));
        } else if (!logged_in && is_private_component(attribute.type)) {
            attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
            rv = CKR_ATTRIBUTE_SENSITIVE;
        } else {
            forwarded.push_back(attribute);
            forwarded_index.push_back(i);
        }
        if (own_rv == CKR_OK) own_rv = rv;
    }
    if (forwarded.empty()) return own_rv;

    const CK_RV rv = backend.C_GetAttributeValue(session, object, forwarded.data(),
                                                 static_cast<CK_ULONG>(forwarded.size()));
    if (rv != CKR_OK && !is_per_attribute(rv)) return rv;
    for (std::size_t i = 0; i < forwarded.size(); ++i) {
        attributes[forwarded_index[i]].ulValueLen = forwarded[i].ulValueLen;
    }
    return rv != CKR_OK ? rv : own_rv;
}

}  // namespace quelm
