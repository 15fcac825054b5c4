#include "attribute_reading.h"

#include <optional>
#include <vector>

#include "private_key_access.h"

namespace quelm {
namespace {

CK_ULONG bits_of(const CK_BYTE* modulus, CK_ULONG length);

// Returns 0 when the modulus cannot be read.
CK_ULONG modulus_bits(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                      CK_OBJECT_HANDLE object) {
    CK_ATTRIBUTE query{CKA_MODULUS, nullptr, 0};
    if (backend.C_GetAttributeValue(session, object, &query, 1) != CKR_OK) return 0;
    if (query.ulValueLen == 0 || query.ulValueLen == CK_UNAVAILABLE_INFORMATION) return 0;
    std::vector<CK_BYTE> modulus(query.ulValueLen);
    query.pValue = modulus.data();
    if (backend.C_GetAttributeValue(session, object, &query, 1) != CKR_OK) return 0;
    return bits_of(modulus.data(), query.ulValueLen);
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

CK_ULONG bits_of(const CK_BYTE* modulus, CK_ULONG length) {
    CK_ULONG first = 0;
    while (first < length && modulus[first] == 0) ++first;
    if (first == length) return 0;
    CK_ULONG bits = (length - first - 1) * 8;
    for (CK_BYTE top = modulus[first]; top; top >>= 1) ++bits;
    return bits;
}

bool answered(const CK_ATTRIBUTE& attribute) {
    return attribute.ulValueLen != CK_UNAVAILABLE_INFORMATION;
}

// A read that asks for CKA_MODULUS_BITS and no secret component, in one backend call: the class
// and the modulus come along with the caller's attributes. Only a clean answer is used: the
// class and the modulus read, and every attribute but CKA_MODULUS_BITS answered (or, for an
// object that is no private key, whatever the backend said, since the class and the modulus
// cannot add a failure of their own). Anything else returns nothing, and the caller takes the
// long way, which writes every value again.
std::optional<CK_RV> read_with_modulus(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                                       CK_OBJECT_HANDLE object, CK_ATTRIBUTE_PTR attributes,
                                       CK_ULONG count) {
    // Room for a 16384-bit modulus; a longer one takes the long way.
    constexpr CK_ULONG kModulusRoom = 2048;
    CK_OBJECT_CLASS object_class_value = 0;
    CK_BYTE modulus[kModulusRoom];
    std::vector<CK_ATTRIBUTE> combined(attributes, attributes + count);
    combined.push_back({CKA_CLASS, &object_class_value, sizeof object_class_value});
    combined.push_back({CKA_MODULUS, modulus, sizeof modulus});
    const CK_RV rv = backend.C_GetAttributeValue(session, object, combined.data(), count + 2);
    if (rv != CKR_OK && !is_per_attribute(rv)) return std::nullopt;
    const CK_ATTRIBUTE& class_read = combined[count];
    const CK_ATTRIBUTE& modulus_read = combined[count + 1];
    if (class_read.ulValueLen != sizeof object_class_value || !answered(modulus_read)) {
        return std::nullopt;
    }
    if (object_class_value != CKO_PRIVATE_KEY) {
        for (CK_ULONG i = 0; i < count; ++i) attributes[i].ulValueLen = combined[i].ulValueLen;
        return rv;
    }
    CK_RV own_rv = CKR_OK;
    const CK_ULONG bits = bits_of(modulus, modulus_read.ulValueLen);
    for (CK_ULONG i = 0; i < count; ++i) {
        if (attributes[i].type == CKA_MODULUS_BITS) continue;
        if (!answered(combined[i])) return std::nullopt;
    }
    for (CK_ULONG i = 0; i < count; ++i) {
        if (attributes[i].type == CKA_MODULUS_BITS) {
            const CK_RV bits_rv = answer_modulus_bits(attributes[i], bits);
            if (own_rv == CKR_OK) own_rv = bits_rv;
        } else {
            attributes[i].ulValueLen = combined[i].ulValueLen;
        }
    }
    return own_rv;
}

}  // namespace

CK_RV get_attribute_value(CK_FUNCTION_LIST& backend, CK_SESSION_HANDLE session,
                          CK_OBJECT_HANDLE object, CK_ATTRIBUTE_PTR attributes, CK_ULONG count) {
    bool touches_private_key_rules = false;
    bool asks_modulus_bits = false;
    bool asks_component = false;
    for (CK_ULONG i = 0; attributes && i < count; ++i) {
        const CK_ATTRIBUTE_TYPE type = attributes[i].type;
        asks_modulus_bits |= type == CKA_MODULUS_BITS;
        asks_component |= is_private_component(type);
    }
    touches_private_key_rules = asks_modulus_bits || asks_component;
    if (asks_modulus_bits && !asks_component) {
        if (const auto rv = read_with_modulus(backend, session, object, attributes, count)) {
            return *rv;
        }
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
