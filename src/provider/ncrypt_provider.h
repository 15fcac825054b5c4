// The key storage provider interface of CNG, written from the published
// definitions because mingw-w64 ships no ncrypt_provider.h.
//
// On Windows the types are the real Windows types. On Linux the same
// signatures use fixed-width types: WCHAR is char16_t, DWORD and ULONG are
// uint32_t, LONG, SECURITY_STATUS and NTSTATUS are int32_t, and the handles
// are uintptr_t. Structures keep their member order with natural alignment.
#pragma once

#include <stddef.h>
#include <stdint.h>

#ifdef _WIN32
// Lean, so that windows.h leaves out its own CNG headers, which would clash
// with the definitions below.
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
// The platform's own CNG types and constants, which the certificate
// functions' headers bring in too; only what they lack is defined below.
#include <bcrypt.h>
#include <ncrypt.h>
// Repeating a typedef of the same type is harmless where the SDK has one.
typedef LONG NTSTATUS;
#define QKSP_TEXT(s) L##s
#define QKSP_EXPORT
#else
typedef char16_t WCHAR;
typedef uint32_t DWORD;
typedef uint32_t ULONG;
typedef int32_t LONG;
typedef int32_t NTSTATUS;
typedef uintptr_t ULONG_PTR;
typedef uint8_t BYTE;
typedef uint8_t UCHAR;
typedef uint16_t USHORT;
typedef BYTE* PBYTE;
typedef UCHAR* PUCHAR;
typedef void* PVOID;
typedef void* HANDLE;
typedef const WCHAR* LPCWSTR;
typedef WCHAR* LPWSTR;
#define WINAPI
#define QKSP_TEXT(s) u##s
#define QKSP_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

#define NCRYPT_KEY_STORAGE_INTERFACE_VERSION_MAJOR 1
#define NCRYPT_KEY_STORAGE_INTERFACE_VERSION_MINOR 0

#ifndef _WIN32
typedef LONG SECURITY_STATUS;
typedef ULONG_PTR NCRYPT_HANDLE;
typedef ULONG_PTR NCRYPT_PROV_HANDLE;
typedef ULONG_PTR NCRYPT_KEY_HANDLE;
typedef ULONG_PTR NCRYPT_SECRET_HANDLE;

typedef struct _BCRYPT_INTERFACE_VERSION {
    USHORT MajorVersion;
    USHORT MinorVersion;
} BCRYPT_INTERFACE_VERSION;

typedef struct _NCryptAlgorithmName {
    LPWSTR pszName;
    DWORD dwClass;
    DWORD dwAlgOperations;
    DWORD dwFlags;
} NCryptAlgorithmName;

typedef struct NCryptKeyName {
    LPWSTR pszName;
    LPWSTR pszAlgid;
    DWORD dwLegacyKeySpec;
    DWORD dwFlags;
} NCryptKeyName;

typedef struct _NCryptBuffer {
    ULONG cbBuffer;
    ULONG BufferType;
    PVOID pvBuffer;
} NCryptBuffer;

typedef struct _NCryptBufferDesc {
    ULONG ulVersion;
    ULONG cBuffers;
    NCryptBuffer* pBuffers;
} NCryptBufferDesc;

typedef struct _BCRYPT_RSAKEY_BLOB {
    ULONG Magic;
    ULONG BitLength;
    ULONG cbPublicExp;
    ULONG cbModulus;
    ULONG cbPrime1;
    ULONG cbPrime2;
} BCRYPT_RSAKEY_BLOB;

typedef struct _NCRYPT_SUPPORTED_LENGTHS {
    DWORD dwMinLength;
    DWORD dwMaxLength;
    DWORD dwIncrement;
    DWORD dwDefaultLength;
} NCRYPT_SUPPORTED_LENGTHS;
#endif  // the types the platform defines

typedef SECURITY_STATUS(WINAPI* NCryptOpenProviderFn)(NCRYPT_PROV_HANDLE* phProvider,
                                                      LPCWSTR pszProviderName, DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptOpenKeyFn)(NCRYPT_PROV_HANDLE hProvider,
                                                 NCRYPT_KEY_HANDLE* phKey, LPCWSTR pszKeyName,
                                                 DWORD dwLegacyKeySpec, DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptCreatePersistedKeyFn)(NCRYPT_PROV_HANDLE hProvider,
                                                            NCRYPT_KEY_HANDLE* phKey,
                                                            LPCWSTR pszAlgId, LPCWSTR pszKeyName,
                                                            DWORD dwLegacyKeySpec, DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptGetProviderPropertyFn)(NCRYPT_PROV_HANDLE hProvider,
                                                             LPCWSTR pszProperty, PBYTE pbOutput,
                                                             DWORD cbOutput, DWORD* pcbResult,
                                                             DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptGetKeyPropertyFn)(NCRYPT_PROV_HANDLE hProvider,
                                                        NCRYPT_KEY_HANDLE hKey, LPCWSTR pszProperty,
                                                        PBYTE pbOutput, DWORD cbOutput,
                                                        DWORD* pcbResult, DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptSetProviderPropertyFn)(NCRYPT_PROV_HANDLE hProvider,
                                                             LPCWSTR pszProperty, PBYTE pbInput,
                                                             DWORD cbInput, DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptSetKeyPropertyFn)(NCRYPT_PROV_HANDLE hProvider,
                                                        NCRYPT_KEY_HANDLE hKey, LPCWSTR pszProperty,
                                                        PBYTE pbInput, DWORD cbInput,
                                                        DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptFinalizeKeyFn)(NCRYPT_PROV_HANDLE hProvider,
                                                     NCRYPT_KEY_HANDLE hKey, DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptDeleteKeyFn)(NCRYPT_PROV_HANDLE hProvider,
                                                   NCRYPT_KEY_HANDLE hKey, DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptFreeProviderFn)(NCRYPT_PROV_HANDLE hProvider);
typedef SECURITY_STATUS(WINAPI* NCryptFreeKeyFn)(NCRYPT_PROV_HANDLE hProvider,
                                                 NCRYPT_KEY_HANDLE hKey);
typedef SECURITY_STATUS(WINAPI* NCryptFreeBufferFn)(PVOID pvInput);
typedef SECURITY_STATUS(WINAPI* NCryptEncryptFn)(NCRYPT_PROV_HANDLE hProvider,
                                                 NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                                                 DWORD cbInput, void* pPaddingInfo, PBYTE pbOutput,
                                                 DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptDecryptFn)(NCRYPT_PROV_HANDLE hProvider,
                                                 NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                                                 DWORD cbInput, void* pPaddingInfo, PBYTE pbOutput,
                                                 DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptIsAlgSupportedFn)(NCRYPT_PROV_HANDLE hProvider,
                                                        LPCWSTR pszAlgId, DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptEnumAlgorithmsFn)(NCRYPT_PROV_HANDLE hProvider,
                                                        DWORD dwAlgClass, DWORD* pdwAlgCount,
                                                        NCryptAlgorithmName** ppAlgList,
                                                        DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptEnumKeysFn)(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszScope,
                                                  NCryptKeyName** ppKeyName, PVOID* ppEnumState,
                                                  DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptImportKeyFn)(NCRYPT_PROV_HANDLE hProvider,
                                                   NCRYPT_KEY_HANDLE hImportKey,
                                                   LPCWSTR pszBlobType,
                                                   NCryptBufferDesc* pParameterList,
                                                   NCRYPT_KEY_HANDLE* phKey, PBYTE pbData,
                                                   DWORD cbData, DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptExportKeyFn)(NCRYPT_PROV_HANDLE hProvider,
                                                   NCRYPT_KEY_HANDLE hKey,
                                                   NCRYPT_KEY_HANDLE hExportKey,
                                                   LPCWSTR pszBlobType,
                                                   NCryptBufferDesc* pParameterList, PBYTE pbOutput,
                                                   DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptSignHashFn)(NCRYPT_PROV_HANDLE hProvider,
                                                  NCRYPT_KEY_HANDLE hKey, void* pPaddingInfo,
                                                  PBYTE pbHashValue, DWORD cbHashValue,
                                                  PBYTE pbSignature, DWORD cbSignature,
                                                  DWORD* pcbResult, DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptVerifySignatureFn)(NCRYPT_PROV_HANDLE hProvider,
                                                         NCRYPT_KEY_HANDLE hKey, void* pPaddingInfo,
                                                         PBYTE pbHashValue, DWORD cbHashValue,
                                                         PBYTE pbSignature, DWORD cbSignature,
                                                         DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptPromptUserFn)(NCRYPT_PROV_HANDLE hProvider,
                                                    NCRYPT_KEY_HANDLE hKey, LPCWSTR pszOperation,
                                                    DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptNotifyChangeKeyFn)(NCRYPT_PROV_HANDLE hProvider,
                                                         HANDLE* phEvent, DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptSecretAgreementFn)(NCRYPT_PROV_HANDLE hProvider,
                                                         NCRYPT_KEY_HANDLE hPrivKey,
                                                         NCRYPT_KEY_HANDLE hPubKey,
                                                         NCRYPT_SECRET_HANDLE* phAgreedSecret,
                                                         DWORD dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptDeriveKeyFn)(NCRYPT_PROV_HANDLE hProvider,
                                                   NCRYPT_SECRET_HANDLE hSharedSecret,
                                                   LPCWSTR pwszKDF,
                                                   NCryptBufferDesc* pParameterList,
                                                   PUCHAR pbDerivedKey, DWORD cbDerivedKey,
                                                   DWORD* pcbResult, ULONG dwFlags);
typedef SECURITY_STATUS(WINAPI* NCryptFreeSecretFn)(NCRYPT_PROV_HANDLE hProvider,
                                                    NCRYPT_SECRET_HANDLE hSharedSecret);

typedef struct _NCRYPT_KEY_STORAGE_FUNCTION_TABLE {
    BCRYPT_INTERFACE_VERSION Version;
    NCryptOpenProviderFn OpenProvider;
    NCryptOpenKeyFn OpenKey;
    NCryptCreatePersistedKeyFn CreatePersistedKey;
    NCryptGetProviderPropertyFn GetProviderProperty;
    NCryptGetKeyPropertyFn GetKeyProperty;
    NCryptSetProviderPropertyFn SetProviderProperty;
    NCryptSetKeyPropertyFn SetKeyProperty;
    NCryptFinalizeKeyFn FinalizeKey;
    NCryptDeleteKeyFn DeleteKey;
    NCryptFreeProviderFn FreeProvider;
    NCryptFreeKeyFn FreeKey;
    NCryptFreeBufferFn FreeBuffer;
    NCryptEncryptFn Encrypt;
    NCryptDecryptFn Decrypt;
    NCryptIsAlgSupportedFn IsAlgSupported;
    NCryptEnumAlgorithmsFn EnumAlgorithms;
    NCryptEnumKeysFn EnumKeys;
    NCryptImportKeyFn ImportKey;
    NCryptExportKeyFn ExportKey;
    NCryptSignHashFn SignHash;
    NCryptVerifySignatureFn VerifySignature;
    NCryptPromptUserFn PromptUser;
    NCryptNotifyChangeKeyFn NotifyChangeKey;
    NCryptSecretAgreementFn SecretAgreement;
    NCryptDeriveKeyFn DeriveKey;
    NCryptFreeSecretFn FreeSecret;
} NCRYPT_KEY_STORAGE_FUNCTION_TABLE;

typedef NTSTATUS(WINAPI* GetKeyStorageInterfaceFn)(
    LPCWSTR pszProviderName, NCRYPT_KEY_STORAGE_FUNCTION_TABLE** ppFunctionTable, DWORD dwFlags);

#ifdef __cplusplus
}  // extern "C"
#endif

#if UINTPTR_MAX == 0xFFFFFFFFFFFFFFFFu
#ifdef __cplusplus
static_assert(sizeof(NCRYPT_KEY_STORAGE_FUNCTION_TABLE) == 216, "function table size");
static_assert(offsetof(NCRYPT_KEY_STORAGE_FUNCTION_TABLE, OpenProvider) == 8, "OpenProvider");
static_assert(offsetof(NCRYPT_KEY_STORAGE_FUNCTION_TABLE, ExportKey) == 0x98, "ExportKey");
static_assert(offsetof(NCRYPT_KEY_STORAGE_FUNCTION_TABLE, FreeSecret) == 208, "FreeSecret");
static_assert(sizeof(NCryptAlgorithmName) == 24 && sizeof(NCryptKeyName) == 24, "names");
static_assert(sizeof(NCryptBuffer) == 16 && sizeof(NCryptBufferDesc) == 16, "buffers");
#endif
#endif
#ifdef __cplusplus
static_assert(sizeof(WCHAR) == 2, "UTF-16 code units");
static_assert(sizeof(BCRYPT_RSAKEY_BLOB) == 24, "RSA key blob header");
#endif

// Statuses. Windows headers define some of them already; the values are the
// published ones either way.
#define QKSP_STATUS(v) ((SECURITY_STATUS)(v))
#ifndef NTE_BAD_DATA
#define NTE_BAD_DATA QKSP_STATUS(0x80090005L)
#define NTE_BAD_SIGNATURE QKSP_STATUS(0x80090006L)
#define NTE_BAD_FLAGS QKSP_STATUS(0x80090009L)
#define NTE_BAD_KEY_STATE QKSP_STATUS(0x8009000BL)
#define NTE_NO_MEMORY QKSP_STATUS(0x8009000EL)
#define NTE_EXISTS QKSP_STATUS(0x8009000FL)
#define NTE_PERM QKSP_STATUS(0x80090010L)
#define NTE_PROVIDER_DLL_FAIL QKSP_STATUS(0x8009001DL)
#define NTE_NOT_FOUND QKSP_STATUS(0x80090011L)
#define NTE_BAD_KEYSET QKSP_STATUS(0x80090016L)
#define NTE_FAIL QKSP_STATUS(0x80090020L)
#define NTE_INVALID_HANDLE QKSP_STATUS(0x80090026L)
#define NTE_INVALID_PARAMETER QKSP_STATUS(0x80090027L)
#define NTE_BUFFER_TOO_SMALL QKSP_STATUS(0x80090028L)
#define NTE_NOT_SUPPORTED QKSP_STATUS(0x80090029L)
#define NTE_NO_MORE_ITEMS QKSP_STATUS(0x8009002AL)
#define NTE_INTERNAL_ERROR QKSP_STATUS(0x8009002DL)
#define SCARD_E_CANCELLED QKSP_STATUS(0x80100002L)
#define SCARD_W_WRONG_CHV QKSP_STATUS(0x8010006BL)
#define SCARD_W_CHV_BLOCKED QKSP_STATUS(0x8010006CL)
#define SCARD_W_CANCELLED_BY_USER QKSP_STATUS(0x8010006EL)
#endif
#ifndef ERROR_CANCELLED
#define ERROR_CANCELLED 1223L
#endif
#ifndef STATUS_INVALID_PARAMETER
#define STATUS_INVALID_PARAMETER ((NTSTATUS)0xC000000DL)
#endif
#ifndef ERROR_SUCCESS
#define ERROR_SUCCESS 0L
#endif
// The card selection routine reports a cancelled choice with the same value
// as SCARD_W_CANCELLED_BY_USER.
#define SCARD_E_CANCELLED_BY_USER SCARD_W_CANCELLED_BY_USER

// Flags, names and sizes, as the platform's CNG headers define them.
#ifndef _WIN32
#define NCRYPT_NO_PADDING_FLAG 0x00000001
#define NCRYPT_PAD_PKCS1_FLAG 0x00000002
#define NCRYPT_PAD_OAEP_FLAG 0x00000004
#define NCRYPT_PAD_PSS_FLAG 0x00000008
#define NCRYPT_NO_KEY_VALIDATION 0x00000008
#define NCRYPT_MACHINE_KEY_FLAG 0x00000020
#define NCRYPT_SILENT_FLAG 0x00000040
#define NCRYPT_OVERWRITE_KEY_FLAG 0x00000080
#define NCRYPT_WRITE_KEY_TO_LEGACY_STORE_FLAG 0x00000200
#define NCRYPT_DO_NOT_FINALIZE_FLAG 0x00000400
#define NCRYPT_PERSIST_ONLY_FLAG 0x40000000
#define NCRYPT_PERSIST_FLAG 0x80000000

#define NCRYPT_CIPHER_OPERATION 0x00000001
#define NCRYPT_HASH_OPERATION 0x00000002
#define NCRYPT_ASYMMETRIC_ENCRYPTION_OPERATION 0x00000004
#define NCRYPT_SECRET_AGREEMENT_OPERATION 0x00000008
#define NCRYPT_SIGNATURE_OPERATION 0x00000010
#define NCRYPT_RNG_OPERATION 0x00000020

#define NCRYPT_ALLOW_EXPORT_FLAG 0x00000001
#define NCRYPT_ALLOW_PLAINTEXT_EXPORT_FLAG 0x00000002
#define NCRYPT_ALLOW_ARCHIVING_FLAG 0x00000004
#define NCRYPT_ALLOW_PLAINTEXT_ARCHIVING_FLAG 0x00000008

#define NCRYPT_ALLOW_DECRYPT_FLAG 0x00000001
#define NCRYPT_ALLOW_SIGNING_FLAG 0x00000002
#define NCRYPT_ALLOW_KEY_AGREEMENT_FLAG 0x00000004
#define NCRYPT_ALLOW_ALL_USAGES 0x00ffffff

#define NCRYPT_IMPL_HARDWARE_FLAG 0x00000001
#define NCRYPT_IMPL_SOFTWARE_FLAG 0x00000002
#define NCRYPT_IMPL_REMOVABLE_FLAG 0x00000008
#define NCRYPT_IMPL_HARDWARE_RNG_FLAG 0x00000010

#define NCRYPT_ASYMMETRIC_ENCRYPTION_INTERFACE 3

#define NCRYPT_MAX_PROPERTY_NAME 64
#define NCRYPTBUFFER_PKCS_KEY_NAME 45

#define BCRYPT_RSAPUBLIC_MAGIC 0x31415352   // "RSA1"
#define BCRYPT_RSAPRIVATE_MAGIC 0x32415352  // "RSA2"

// Property and algorithm names.
#define NCRYPT_NAME_PROPERTY QKSP_TEXT("Name")
#define NCRYPT_UNIQUE_NAME_PROPERTY QKSP_TEXT("Unique Name")
#define NCRYPT_ALGORITHM_PROPERTY QKSP_TEXT("Algorithm Name")
#define NCRYPT_ALGORITHM_GROUP_PROPERTY QKSP_TEXT("Algorithm Group")
#define NCRYPT_LENGTH_PROPERTY QKSP_TEXT("Length")
#define NCRYPT_LENGTHS_PROPERTY QKSP_TEXT("Lengths")
#define NCRYPT_BLOCK_LENGTH_PROPERTY QKSP_TEXT("Block Length")
#define NCRYPT_EXPORT_POLICY_PROPERTY QKSP_TEXT("Export Policy")
#define NCRYPT_KEY_USAGE_PROPERTY QKSP_TEXT("Key Usage")
#define NCRYPT_KEY_TYPE_PROPERTY QKSP_TEXT("Key Type")
#define NCRYPT_IMPL_TYPE_PROPERTY QKSP_TEXT("Impl Type")
#define NCRYPT_MAX_NAME_LENGTH_PROPERTY QKSP_TEXT("Max Name Length")
#define NCRYPT_VERSION_PROPERTY QKSP_TEXT("Version")
#define NCRYPT_USE_CONTEXT_PROPERTY QKSP_TEXT("Use Context")
#define NCRYPT_WINDOW_HANDLE_PROPERTY QKSP_TEXT("HWND Handle")
#define NCRYPT_SECURITY_DESCR_SUPPORT_PROPERTY QKSP_TEXT("Security Descr Support")
#define NCRYPT_SECURITY_DESCR_PROPERTY QKSP_TEXT("Security Descr")
#define NCRYPT_UI_POLICY_PROPERTY QKSP_TEXT("UI Policy")
#define NCRYPT_CERTIFICATE_PROPERTY QKSP_TEXT("SmartCardKeyCertificate")
#define NCRYPT_ROOT_CERTSTORE_PROPERTY QKSP_TEXT("SmartcardRootCertStore")
#define NCRYPT_USER_CERTSTORE_PROPERTY QKSP_TEXT("SmartCardUserCertStore")
#define NCRYPT_SMARTCARD_GUID_PROPERTY QKSP_TEXT("SmartCardGuid")
#define NCRYPT_READER_PROPERTY QKSP_TEXT("SmartCardReader")
#define NCRYPT_PIN_PROPERTY QKSP_TEXT("SmartCardPin")

#define NCRYPT_RSA_ALGORITHM QKSP_TEXT("RSA")
#define BCRYPT_RSAPUBLIC_BLOB QKSP_TEXT("RSAPUBLICBLOB")
#define BCRYPT_RSAPRIVATE_BLOB QKSP_TEXT("RSAPRIVATEBLOB")
#endif

// The 27 entry points that the provider exports.
#ifdef __cplusplus
extern "C" {
#endif
QKSP_EXPORT NTSTATUS WINAPI GetKeyStorageInterface(
    LPCWSTR pszProviderName, NCRYPT_KEY_STORAGE_FUNCTION_TABLE** ppFunctionTable, DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPOpenProvider(NCRYPT_PROV_HANDLE* phProvider,
                                                        LPCWSTR pszProviderName, DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPOpenKey(NCRYPT_PROV_HANDLE hProvider,
                                                   NCRYPT_KEY_HANDLE* phKey, LPCWSTR pszKeyName,
                                                   DWORD dwLegacyKeySpec, DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPCreatePersistedKey(NCRYPT_PROV_HANDLE hProvider,
                                                              NCRYPT_KEY_HANDLE* phKey,
                                                              LPCWSTR pszAlgId, LPCWSTR pszKeyName,
                                                              DWORD dwLegacyKeySpec, DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPGetProviderProperty(NCRYPT_PROV_HANDLE hProvider,
                                                               LPCWSTR pszProperty, PBYTE pbOutput,
                                                               DWORD cbOutput, DWORD* pcbResult,
                                                               DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPGetKeyProperty(NCRYPT_PROV_HANDLE hProvider,
                                                          NCRYPT_KEY_HANDLE hKey,
                                                          LPCWSTR pszProperty, PBYTE pbOutput,
                                                          DWORD cbOutput, DWORD* pcbResult,
                                                          DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPSetProviderProperty(NCRYPT_PROV_HANDLE hProvider,
                                                               LPCWSTR pszProperty, PBYTE pbInput,
                                                               DWORD cbInput, DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPSetKeyProperty(NCRYPT_PROV_HANDLE hProvider,
                                                          NCRYPT_KEY_HANDLE hKey,
                                                          LPCWSTR pszProperty, PBYTE pbInput,
                                                          DWORD cbInput, DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPFinalizeKey(NCRYPT_PROV_HANDLE hProvider,
                                                       NCRYPT_KEY_HANDLE hKey, DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPDeleteKey(NCRYPT_PROV_HANDLE hProvider,
                                                     NCRYPT_KEY_HANDLE hKey, DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPFreeProvider(NCRYPT_PROV_HANDLE hProvider);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPFreeKey(NCRYPT_PROV_HANDLE hProvider,
                                                   NCRYPT_KEY_HANDLE hKey);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPFreeBuffer(PVOID pvInput);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPEncrypt(NCRYPT_PROV_HANDLE hProvider,
                                                   NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                                                   DWORD cbInput, void* pPaddingInfo,
                                                   PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult,
                                                   DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPDecrypt(NCRYPT_PROV_HANDLE hProvider,
                                                   NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                                                   DWORD cbInput, void* pPaddingInfo,
                                                   PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult,
                                                   DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPIsAlgSupported(NCRYPT_PROV_HANDLE hProvider,
                                                          LPCWSTR pszAlgId, DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPEnumAlgorithms(NCRYPT_PROV_HANDLE hProvider,
                                                          DWORD dwAlgClass, DWORD* pdwAlgCount,
                                                          NCryptAlgorithmName** ppAlgList,
                                                          DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPEnumKeys(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszScope,
                                                    NCryptKeyName** ppKeyName, PVOID* ppEnumState,
                                                    DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPImportKey(NCRYPT_PROV_HANDLE hProvider,
                                                     NCRYPT_KEY_HANDLE hImportKey,
                                                     LPCWSTR pszBlobType,
                                                     NCryptBufferDesc* pParameterList,
                                                     NCRYPT_KEY_HANDLE* phKey, PBYTE pbData,
                                                     DWORD cbData, DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPExportKey(
    NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, NCRYPT_KEY_HANDLE hExportKey,
    LPCWSTR pszBlobType, NCryptBufferDesc* pParameterList, PBYTE pbOutput, DWORD cbOutput,
    DWORD* pcbResult, DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPSignHash(NCRYPT_PROV_HANDLE hProvider,
                                                    NCRYPT_KEY_HANDLE hKey, void* pPaddingInfo,
                                                    PBYTE pbHashValue, DWORD cbHashValue,
                                                    PBYTE pbSignature, DWORD cbSignature,
                                                    DWORD* pcbResult, DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPVerifySignature(NCRYPT_PROV_HANDLE hProvider,
                                                           NCRYPT_KEY_HANDLE hKey,
                                                           void* pPaddingInfo, PBYTE pbHashValue,
                                                           DWORD cbHashValue, PBYTE pbSignature,
                                                           DWORD cbSignature, DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPPromptUser(NCRYPT_PROV_HANDLE hProvider,
                                                      NCRYPT_KEY_HANDLE hKey, LPCWSTR pszOperation,
                                                      DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPNotifyChangeKey(NCRYPT_PROV_HANDLE hProvider,
                                                           HANDLE* phEvent, DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPSecretAgreement(NCRYPT_PROV_HANDLE hProvider,
                                                           NCRYPT_KEY_HANDLE hPrivKey,
                                                           NCRYPT_KEY_HANDLE hPubKey,
                                                           NCRYPT_SECRET_HANDLE* phAgreedSecret,
                                                           DWORD dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPDeriveKey(NCRYPT_PROV_HANDLE hProvider,
                                                     NCRYPT_SECRET_HANDLE hSharedSecret,
                                                     LPCWSTR pwszKDF,
                                                     NCryptBufferDesc* pParameterList,
                                                     PUCHAR pbDerivedKey, DWORD cbDerivedKey,
                                                     DWORD* pcbResult, ULONG dwFlags);
QKSP_EXPORT SECURITY_STATUS WINAPI QUELMKSPFreeSecret(NCRYPT_PROV_HANDLE hProvider,
                                                      NCRYPT_SECRET_HANDLE hSharedSecret);
#ifdef __cplusplus
}  // extern "C"
#endif
