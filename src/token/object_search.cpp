#include "token/object_search.h"

#include <new>

ObjectSearch FindObjects(CK_FUNCTION_LIST& token, CK_SESSION_HANDLE session, CK_ATTRIBUTE* search,
                         CK_ULONG searchCount, CK_OBJECT_HANDLE* objects, CK_ULONG maxObjects) {
    ObjectSearch result;
    result.rv = token.C_FindObjectsInit(session, search, searchCount);
    if (result.rv != CKR_OK) return result;
    result.rv = token.C_FindObjects(session, objects, maxObjects, &result.found);
    if (result.rv != CKR_OK || result.found > maxObjects) result.found = 0;
    result.finalRv = token.C_FindObjectsFinal(session);
    return result;
}

CK_RV ReadAttributeBytes(CK_FUNCTION_LIST& token, CK_SESSION_HANDLE session,
                         CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type, KeyBytes* value) {
    CK_ATTRIBUTE attribute = {type, nullptr, 0};
    CK_RV rv = token.C_GetAttributeValue(session, object, &attribute, 1);
    if (rv != CKR_OK) return rv;
    if (attribute.ulValueLen == CK_UNAVAILABLE_INFORMATION) return CKR_ATTRIBUTE_TYPE_INVALID;
    value->reset();
    if (attribute.ulValueLen == 0) return CKR_OK;
    KeyBytes bytes;
    try {
        bytes = KeyBytes(attribute.ulValueLen);
    } catch (const std::bad_alloc&) {
        return CKR_HOST_MEMORY;
    }
    attribute.pValue = bytes.get();
    rv = token.C_GetAttributeValue(session, object, &attribute, 1);
    if (rv != CKR_OK) return rv;
    // A value that shrank between the two calls keeps only what was written.
    if (attribute.ulValueLen < bytes.size())
        bytes = KeyBytes::CopyOf(bytes.get(), attribute.ulValueLen);
    *value = std::move(bytes);
    return CKR_OK;
}
