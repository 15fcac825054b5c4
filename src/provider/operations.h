// The provider's operations, as C++ functions. The exported C functions of
// the same names with the QUELMKSP prefix forward to them.
#pragma once

#include "provider/ncrypt_provider.h"

namespace quelmksp {

NTSTATUS GetKeyStorageInterface(LPCWSTR pszProviderName,
                                NCRYPT_KEY_STORAGE_FUNCTION_TABLE** ppFunctionTable, DWORD dwFlags);

SECURITY_STATUS OpenProvider(NCRYPT_PROV_HANDLE* phProvider, LPCWSTR pszProviderName,
                             DWORD dwFlags);
SECURITY_STATUS OpenKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey, LPCWSTR pszKeyName,
                        DWORD dwLegacyKeySpec, DWORD dwFlags);
SECURITY_STATUS CreatePersistedKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey,
                                   LPCWSTR pszAlgId, LPCWSTR pszKeyName, DWORD dwLegacyKeySpec,
                                   DWORD dwFlags);
SECURITY_STATUS GetProviderProperty(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty,
                                    PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult,
                                    DWORD dwFlags);
SECURITY_STATUS GetKeyProperty(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                               LPCWSTR pszProperty, PBYTE pbOutput, DWORD cbOutput,
                               DWORD* pcbResult, DWORD dwFlags);
SECURITY_STATUS SetProviderProperty(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty,
                                    PBYTE pbInput, DWORD cbInput, DWORD dwFlags);
SECURITY_STATUS SetKeyProperty(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                               LPCWSTR pszProperty, PBYTE pbInput, DWORD cbInput, DWORD dwFlags);
SECURITY_STATUS FinalizeKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, DWORD dwFlags);
SECURITY_STATUS DeleteKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, DWORD dwFlags);
SECURITY_STATUS FreeProvider(NCRYPT_PROV_HANDLE hProvider);
SECURITY_STATUS FreeKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey);
SECURITY_STATUS FreeBuffer(PVOID pvInput);
SECURITY_STATUS Encrypt(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                        DWORD cbInput, void* pPaddingInfo, PBYTE pbOutput, DWORD cbOutput,
                        DWORD* pcbResult, DWORD dwFlags);
SECURITY_STATUS Decrypt(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, PBYTE pbInput,
                        DWORD cbInput, void* pPaddingInfo, PBYTE pbOutput, DWORD cbOutput,
                        DWORD* pcbResult, DWORD dwFlags);
SECURITY_STATUS IsAlgSupported(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszAlgId, DWORD dwFlags);
SECURITY_STATUS EnumAlgorithms(NCRYPT_PROV_HANDLE hProvider, DWORD dwAlgClass, DWORD* pdwAlgCount,
                               NCryptAlgorithmName** ppAlgList, DWORD dwFlags);
SECURITY_STATUS EnumKeys(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszScope, NCryptKeyName** ppKeyName,
                         PVOID* ppEnumState, DWORD dwFlags);
SECURITY_STATUS ImportKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hImportKey,
                          LPCWSTR pszBlobType, NCryptBufferDesc* pParameterList,
                          NCRYPT_KEY_HANDLE* phKey, PBYTE pbData, DWORD cbData, DWORD dwFlags);
SECURITY_STATUS ExportKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                          NCRYPT_KEY_HANDLE hExportKey, LPCWSTR pszBlobType,
                          NCryptBufferDesc* pParameterList, PBYTE pbOutput, DWORD cbOutput,
                          DWORD* pcbResult, DWORD dwFlags);
SECURITY_STATUS SignHash(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey, void* pPaddingInfo,
                         PBYTE pbHashValue, DWORD cbHashValue, PBYTE pbSignature, DWORD cbSignature,
                         DWORD* pcbResult, DWORD dwFlags);
SECURITY_STATUS VerifySignature(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                void* pPaddingInfo, PBYTE pbHashValue, DWORD cbHashValue,
                                PBYTE pbSignature, DWORD cbSignature, DWORD dwFlags);
SECURITY_STATUS PromptUser(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                           LPCWSTR pszOperation, DWORD dwFlags);
SECURITY_STATUS NotifyChangeKey(NCRYPT_PROV_HANDLE hProvider, HANDLE* phEvent, DWORD dwFlags);
SECURITY_STATUS SecretAgreement(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hPrivKey,
                                NCRYPT_KEY_HANDLE hPubKey, NCRYPT_SECRET_HANDLE* phAgreedSecret,
                                DWORD dwFlags);
SECURITY_STATUS DeriveKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_SECRET_HANDLE hSharedSecret,
                          LPCWSTR pwszKDF, NCryptBufferDesc* pParameterList, PUCHAR pbDerivedKey,
                          DWORD cbDerivedKey, DWORD* pcbResult, ULONG dwFlags);
SECURITY_STATUS FreeSecret(NCRYPT_PROV_HANDLE hProvider, NCRYPT_SECRET_HANDLE hSharedSecret);

}  // namespace quelmksp
