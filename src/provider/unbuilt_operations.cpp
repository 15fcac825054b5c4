// Operations that the provider does not offer yet. Each writes its trace
// frame and answers NTE_NOT_SUPPORTED, so that a caller gets a clear status
// and the log shows what was asked.
#include "provider/operation_frame.h"
#include "provider/operations.h"

namespace quelmksp {

SECURITY_STATUS GetProviderProperty(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty,
                                    PBYTE pbOutput, DWORD cbOutput, DWORD* pcbResult,
                                    DWORD dwFlags) {
    OperationFrame frame("QUELMKSPGetProviderProperty", {{"hProvider", hProvider},
                                                         {"pszProperty", pszProperty},
                                                         {"pbOutput", pbOutput},
                                                         {"cbOutput", cbOutput},
                                                         {"pcbResult", pcbResult},
                                                         {"dwFlags", dwFlags}});
    return frame.Exit(NTE_NOT_SUPPORTED);
}

SECURITY_STATUS SetProviderProperty(NCRYPT_PROV_HANDLE hProvider, LPCWSTR pszProperty,
                                    PBYTE pbInput, DWORD cbInput, DWORD dwFlags) {
    OperationFrame frame("QUELMKSPSetProviderProperty", {{"hProvider", hProvider},
                                                         {"pszProperty", pszProperty},
                                                         {"pbInput", pbInput},
                                                         {"cbInput", cbInput},
                                                         {"dwFlags", dwFlags}});
    return frame.Exit(NTE_NOT_SUPPORTED);
}

SECURITY_STATUS ImportKey(NCRYPT_PROV_HANDLE hProvider, NCRYPT_KEY_HANDLE hImportKey,
                          LPCWSTR pszBlobType, NCryptBufferDesc* pParameterList,
                          NCRYPT_KEY_HANDLE* phKey, PBYTE pbData, DWORD cbData, DWORD dwFlags) {
    OperationFrame frame("QUELMKSPImportKey", {{"hProvider", hProvider},
                                               {"hImportKey", hImportKey},
                                               {"pszBlobType", pszBlobType},
                                               {"pParameterList", pParameterList},
                                               {"phKey", phKey},
                                               {"pbData", pbData},
                                               {"cbData", cbData},
                                               {"dwFlags", dwFlags}});
    return frame.Exit(NTE_NOT_SUPPORTED);
}

}  // namespace quelmksp
