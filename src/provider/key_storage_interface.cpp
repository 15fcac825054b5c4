#include <cstdio>

#include "diag/trace_frame.h"
#include "platform/wide_string.h"
#include "provider/card_monitor.h"
#include "provider/ncrypt_provider.h"
#include "provider/operations.h"
#include "token/cryptoki_library.h"

namespace quelmksp {
namespace {

// Handed out by pointer and never copied or changed.
NCRYPT_KEY_STORAGE_FUNCTION_TABLE g_functionTable = {
    {NCRYPT_KEY_STORAGE_INTERFACE_VERSION_MAJOR, NCRYPT_KEY_STORAGE_INTERFACE_VERSION_MINOR},
    QUELMKSPOpenProvider,
    QUELMKSPOpenKey,
    QUELMKSPCreatePersistedKey,
    QUELMKSPGetProviderProperty,
    QUELMKSPGetKeyProperty,
    QUELMKSPSetProviderProperty,
    QUELMKSPSetKeyProperty,
    QUELMKSPFinalizeKey,
    QUELMKSPDeleteKey,
    QUELMKSPFreeProvider,
    QUELMKSPFreeKey,
    QUELMKSPFreeBuffer,
    QUELMKSPEncrypt,
    QUELMKSPDecrypt,
    QUELMKSPIsAlgSupported,
    QUELMKSPEnumAlgorithms,
    QUELMKSPEnumKeys,
    QUELMKSPImportKey,
    QUELMKSPExportKey,
    QUELMKSPSignHash,
    QUELMKSPVerifySignature,
    QUELMKSPPromptUser,
    QUELMKSPNotifyChangeKey,
    QUELMKSPSecretAgreement,
    QUELMKSPDeriveKey,
    QUELMKSPFreeSecret,
};

constexpr platform::WideView kProviderName = WIDE("Velmora KSP v4.5");

// The whole name must match, case and all.
bool IsOurName(LPCWSTR name) {
    return name && platform::WideView(name) == kProviderName;
}

std::string RetrievedLine() {
    char text[200];
    std::snprintf(text, sizeof text, "Function table retrieved - %s %s %s %s", "Velmora KSP",
                  "4, 5, 0, 0", "x86", "(Release Build)");
    return text;
}

}  // namespace

NTSTATUS GetKeyStorageInterface(LPCWSTR pszProviderName,
                                NCRYPT_KEY_STORAGE_FUNCTION_TABLE** ppFunctionTable,
                                DWORD dwFlags) {
    TraceFrame frame(*g_pOpLog, "GetKeyStorageInterface",
                     {{"pszProviderName", pszProviderName},
                      {"ppFunctionTable", ppFunctionTable},
                      {"dwFlags", dwFlags}},
                     NTE_INTERNAL_ERROR);
    if (!ppFunctionTable) return frame.Fail(NTE_INTERNAL_ERROR, "ppFunctionTable pointer is NULL");
    if (!IsOurName(pszProviderName))
        return frame.Fail(STATUS_INVALID_PARAMETER, "Provider name mismatch.");
    // Without its token module the provider can do nothing; the reason is
    // the text that the binding raised at load.
    if (!g_pCryptoki) return frame.Fail(NTE_PROVIDER_DLL_FAIL, g_bindingError);

    *ppFunctionTable = &g_functionTable;
    frame.Line(RetrievedLine());
    // A monitor that could not start is tried again at the next call.
    if (!g_pCardMonitor->fStarted) StartCardMonitor();
    return frame.Exit(ERROR_SUCCESS);
}

}  // namespace quelmksp
