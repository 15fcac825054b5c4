// The two PKCS#11 call patterns that key creation, certificates and key
// lookup share: a search for a few objects, and the read of one attribute
// of unknown length.
#pragma once

#include "token/key_components.h"
#include "token/pkcs11.h"

struct ObjectSearch {
    // The result of C_FindObjectsInit, or else of C_FindObjects.
    CK_RV rv = CKR_OK;
    // The result of C_FindObjectsFinal, which some callers ignore.
    CK_RV finalRv = CKR_OK;
    CK_ULONG found = 0;
};

// Finds at most maxObjects objects matching the template. Once the search
// has begun it is always ended, so that a failed call never leaves the
// session blocked by an active search.
ObjectSearch FindObjects(CK_FUNCTION_LIST& token, CK_SESSION_HANDLE session, CK_ATTRIBUTE* search,
                         CK_ULONG searchCount, CK_OBJECT_HANDLE* objects, CK_ULONG maxObjects);

// Reads one attribute: a call for its length, then one for its bytes into
// a buffer of that length, which replaces *value. An empty value leaves
// *value empty.
CK_RV ReadAttributeBytes(CK_FUNCTION_LIST& token, CK_SESSION_HANDLE session,
                         CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type, KeyBytes* value);
