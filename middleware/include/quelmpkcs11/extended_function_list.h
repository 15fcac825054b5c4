// The function list that the token middleware hands out: the standard PKCS#11 2.40 list, four
// reserved entries and the extended login entry. The provider and the middleware share this one
// definition, so a layout change breaks both builds at once instead of one of them at run time.
#ifndef QUELMPKCS11_EXTENDED_FUNCTION_LIST_H
#define QUELMPKCS11_EXTENDED_FUNCTION_LIST_H

#include <stddef.h>

// The Windows PKCS#11 ABI packs every structure to 1 byte; the header packs its own structures,
// and the extended list below must follow the same rule to stay binary compatible with it.
#ifdef _WIN32
#pragma pack(push, 1)
#endif

#include <p11-kit/pkcs11.h>

#ifdef __cplusplus
extern "C" {
#endif

// Same parameters as C_Login. A wrong PIN returns the number of tries left (1 to 14) instead of
// CKR_PIN_INCORRECT; no tries left returns CKR_PIN_LOCKED.
typedef CK_RV (*CK_EXTENDED_LOGIN)(CK_SESSION_HANDLE hSession, CK_USER_TYPE userType,
                                   CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen);

// Entry numbers count C_Initialize as entry 0.
enum {
    QUELM_STANDARD_ENTRY_COUNT = 68,
    QUELM_RESERVED_ENTRY_COUNT = 4,
    QUELM_EXTENDED_LOGIN_INDEX = 72
};

typedef struct QUELM_FUNCTION_LIST {
    CK_FUNCTION_LIST standard;
    void* reserved[QUELM_RESERVED_ENTRY_COUNT];
    CK_EXTENDED_LOGIN ExtendedLogin;
} QUELM_FUNCTION_LIST;

#ifdef __cplusplus
}
#endif

#ifdef _WIN32
#pragma pack(pop)
#endif

#ifdef __cplusplus
#define QUELM_STATIC_ASSERT(condition, message) static_assert(condition, message)
#else
#define QUELM_STATIC_ASSERT(condition, message) _Static_assert(condition, message)
#endif

QUELM_STATIC_ASSERT(offsetof(QUELM_FUNCTION_LIST, ExtendedLogin) ==
                        offsetof(CK_FUNCTION_LIST, C_Initialize) +
                            QUELM_EXTENDED_LOGIN_INDEX * sizeof(CK_C_Initialize),
                    "ExtendedLogin must be entry 72 of the function list");
QUELM_STATIC_ASSERT(sizeof(CK_FUNCTION_LIST) ==
                        offsetof(CK_FUNCTION_LIST, C_Initialize) +
                            QUELM_STANDARD_ENTRY_COUNT * sizeof(CK_C_Initialize),
                    "the standard list must hold exactly 68 entries");

#if defined(_WIN64)
QUELM_STATIC_ASSERT(offsetof(QUELM_FUNCTION_LIST, ExtendedLogin) == 578,
                    "Windows x64: 2-byte version, 72 packed 8-byte entries");
#elif defined(__x86_64__) || defined(__aarch64__)
QUELM_STATIC_ASSERT(offsetof(QUELM_FUNCTION_LIST, ExtendedLogin) == 584,
                    "LP64: version padded to 8 bytes, then 72 8-byte entries");
#endif

#undef QUELM_STATIC_ASSERT

#endif
