// The exported C interface: each entry point forwards to the C++ operation
// of the same name and makes sure that nothing thrown inside crosses into
// the caller, which is the key storage router.
#include "provider/ncrypt_provider.h"
#include "provider/operations.h"

namespace {

template <auto Operation, typename... Args>
SECURITY_STATUS Shielded(Args... args) noexcept {
    try {
        return Operation(args...);
    } catch (...) {
        return NTE_INTERNAL_ERROR;
    }
}

}  // namespace

extern "C" {

NTSTATUS WINAPI GetKeyStorageInterface(LPCWSTR pszProviderName,
                                       NCRYPT_KEY_STORAGE_FUNCTION_TABLE** ppFunctionTable,
                                       DWORD dwFlags) {
    return Shielded<quelmksp::GetKeyStorageInterface>(pszProviderName, ppFunctionTable, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPOpenProvider(NCRYPT_PROV_HANDLE* phProvider, LPCWSTR pszProviderName,
                                            DWORD dwFlags) {
    return Shielded<quelmksp::OpenProvider>(phProvider, pszProviderName, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPOpenKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE* phKey,
                                       LPCWSTR pszKeyName, DWORD dwLegacyKeySpec, DWORD dwFlags) {
    return Shielded<quelmksp::OpenKey>(hProvider, phKey, pszKeyName, dwLegacyKeySpec, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPCreatePersistedKey(NCRYPT_PROV_HANDLE hProvider,
                                                  NCRYPT_KEY_HANDLE* phKey, LPCWSTR pszAlgId,
                                                  LPCWSTR pszKeyName, DWORD dwLegacyKeySpec,
                                                  DWORD dwFlags) {
    return Shielded<quelmksp::CreatePersistedKey>(hProvider, phKey, pszAlgId, pszKeyName,
                                                  dwLegacyKeySpec, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPGetProviderProperty(NCRYPT_PROV_HANDLE hProvider,
                                                   LPCWSTR pszProperty, PBYTE pbOutput,
                                                   DWORD cbOutput, DWORD* pcbResult,
                                                   DWORD dwFlags) {
    return Shielded<quelmksp::GetProviderProperty>(hProvider, pszProperty, pbOutput, cbOutput,
                                                   pcbResult, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPGetKeyProperty(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                              LPCWSTR pszProperty, PBYTE pbOutput, DWORD cbOutput,
                                              DWORD* pcbResult, DWORD dwFlags) {
    return Shielded<quelmksp::GetKeyProperty>(hProvider, hKey, pszProperty, pbOutput, cbOutput,
                                              pcbResult, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPSetProviderProperty(NCRYPT_PROV_HANDLE hProvider,
                                                   LPCWSTR pszProperty, PBYTE pbInput,
                                                   DWORD cbInput, DWORD dwFlags) {
    return Shielded<quelmksp::SetProviderProperty>(hProvider, pszProperty, pbInput, cbInput,
                                                   dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPSetKeyProperty(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                              LPCWSTR pszProperty, PBYTE pbInput, DWORD cbInput,
                                              DWORD dwFlags) {
    return Shielded<quelmksp::SetKeyProperty>(hProvider, hKey, pszProperty, pbInput, cbInput,
                                              dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPFinalizeKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                           DWORD dwFlags) {
    return Shielded<quelmksp::FinalizeKey>(hProvider, hKey, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPDeleteKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                         DWORD dwFlags) {
    return Shielded<quelmksp::DeleteKey>(hProvider, hKey, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPFreeProvider(NCRYPT_PROV_HANDLE hProvider) {
    return Shielded<quelmksp::FreeProvider>(hProvider);
}

SECURITY_STATUS WINAPI QUELMKSPFreeKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey) {
    return Shielded<quelmksp::FreeKey>(hProvider, hKey);
}

SECURITY_STATUS WINAPI QUELMKSPFreeBuffer(PVOID pvInput) {
    return Shielded<quelmksp::FreeBuffer>(pvInput);
}

SECURITY_STATUS WINAPI QUELMKSPEncrypt(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                       PBYTE pbInput, DWORD cbInput, void* pPaddingInfo,
                                       PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult,
                                       DWORD dwFlags) {
    return Shielded<quelmksp::Encrypt>(hProvider, hKey, pbInput, cbInput, pPaddingInfo, pbOutput,
                                       cbOutput, pcbResult, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPDecrypt(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                       PBYTE pbInput, DWORD cbInput, void* pPaddingInfo,
                                       PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult,
                                       DWORD dwFlags) {
    return Shielded<quelmksp::Decrypt>(hProvider, hKey, pbInput, cbInput, pPaddingInfo, pbOutput,
                                       cbOutput, pcbResult, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPIsAlgSupported(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszAlgId,
                                              DWORD dwFlags) {
    return Shielded<quelmksp::IsAlgSupported>(hProvider, pszAlgId, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPEnumAlgorithms(NCRYPT_PROV_HANDLE hProvider, DWORD dwAlgClass,
                                              DWORD* pdwAlgCount, NCryptAlgorithmName** ppAlgList,
                                              DWORD dwFlags) {
    return Shielded<quelmksp::EnumAlgorithms>(hProvider, dwAlgClass, pdwAlgCount, ppAlgList,
                                              dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPEnumKeys(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszScope,
                                        NCryptKeyName** ppKeyName, PVOID* ppEnumState,
                                        DWORD dwFlags) {
    return Shielded<quelmksp::EnumKeys>(hProvider, pszScope, ppKeyName, ppEnumState, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPImportKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hImportKey,
                                         LPCWSTR pszBlobType, NCryptBufferDesc* pParameterList,
                                         NCRYPT_KEY_HANDLE* phKey, PBYTE pbData, DWORD cbData,
                                         DWORD dwFlags) {
    return Shielded<quelmksp::ImportKey>(hProvider, hImportKey, pszBlobType, pParameterList, phKey,
                                         pbData, cbData, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPExportKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                         NCRYPT_KEY_HANDLE hExportKey, LPCWSTR pszBlobType,
                                         NCryptBufferDesc* pParameterList, PBYTE pbOutput,
                                         DWORD cbOutput, DWORD* pcbResult, DWORD dwFlags) {
    return Shielded<quelmksp::ExportKey>(hProvider, hKey, hExportKey, pszBlobType, pParameterList,
                                         pbOutput, cbOutput, pcbResult, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPSignHash(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                        void* pPaddingInfo, PBYTE pbHashValue, DWORD cbHashValue,
                                        PBYTE pbSignature, DWORD cbSignature, DWORD* pcbResult,
                                        DWORD dwFlags) {
    return Shielded<quelmksp::SignHash>(hProvider, hKey, pPaddingInfo, pbHashValue, cbHashValue,
                                        pbSignature, cbSignature, pcbResult, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPVerifySignature(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                               void* pPaddingInfo, PBYTE pbHashValue,
                                               DWORD cbHashValue, PBYTE pbSignature,
                                               DWORD cbSignature, DWORD dwFlags) {
    return Shielded<quelmksp::VerifySignature>(hProvider, hKey, pPaddingInfo, pbHashValue,
                                               cbHashValue, pbSignature, cbSignature, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPPromptUser(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hKey,
                                          LPCWSTR pszOperation, DWORD dwFlags) {
    return Shielded<quelmksp::PromptUser>(hProvider, hKey, pszOperation, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPNotifyChangeKey(NCRYPT_PROV_HANDLE hProvider, HANDLE* phEvent,
                                               DWORD dwFlags) {
    return Shielded<quelmksp::NotifyChangeKey>(hProvider, phEvent, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPSecretAgreement(NCRYPT_PROV_HANDLE hProvider,
                                               NCRYPT_KEY_HANDLE hPrivKey,
                                               NCRYPT_KEY_HANDLE hPubKey,
                                               NCRYPT_SECRET_HANDLE* phAgreedSecret,
                                               DWORD dwFlags) {
    return Shielded<quelmksp::SecretAgreement>(hProvider, hPrivKey, hPubKey, phAgreedSecret,
                                               dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPDeriveKey(NCRYPT_PROV_HANDLE hProvider,
                                         NCRYPT_SECRET_HANDLE hSharedSecret, LPCWSTR pwszKDF,
                                         NCryptBufferDesc* pParameterList, PUCHAR pbDerivedKey,
                                         DWORD cbDerivedKey, DWORD* pcbResult, ULONG dwFlags) {
    return Shielded<quelmksp::DeriveKey>(hProvider, hSharedSecret, pwszKDF, pParameterList,
                                         pbDerivedKey, cbDerivedKey, pcbResult, dwFlags);
}

SECURITY_STATUS WINAPI QUELMKSPFreeSecret(NCRYPT_PROV_HANDLE hProvider,
                                          NCRYPT_SECRET_HANDLE hSharedSecret) {
    return Shielded<quelmksp::FreeSecret>(hProvider, hSharedSecret);
}

}  // extern "C"
