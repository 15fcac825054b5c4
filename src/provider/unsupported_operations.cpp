// The operations of the function table that the provider does not offer.
// Each answers NTE_NOT_SUPPORTED without looking at its arguments, so even
// a null handle gets that answer.
#include "provider/operation_frame.h"
#include "provider/operations.h"

namespace quelmksp {

SECURITY_STATUS DeriveKey(NCRYPT_PROV_HANDLE, NCRYPT_SECRET_HANDLE, LPCWSTR, NCryptBufferDesc*,
                          PUCHAR, DWORD, DWORD*, ULONG) {
    OperationFrame frame("QUELMKSPDeriveKey", {});
    return frame.Fail(NTE_NOT_SUPPORTED,
                      "This version of QUELM KSP does not support key derivation.");
}

SECURITY_STATUS SecretAgreement(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, NCRYPT_KEY_HANDLE,
                                NCRYPT_SECRET_HANDLE*, DWORD) {
    OperationFrame frame("QUELMKSPSecretAgreement", {});
    frame.SetExitLineWithoutStatus("QUELMKSPSecretAgreement - Exit");
    return frame.Fail(NTE_NOT_SUPPORTED, "SecretAgreement is not supported");
}

SECURITY_STATUS NotifyChangeKey(NCRYPT_PROV_HANDLE, HANDLE*, DWORD) {
    OperationFrame frame("QUELMKSPNotifyChangeKey", {});
    return frame.Fail(NTE_NOT_SUPPORTED, "NotifyChangeKey is not supported");
}

SECURITY_STATUS PromptUser(NCRYPT_PROV_HANDLE, NCRYPT_KEY_HANDLE, LPCWSTR, DWORD) {
    OperationFrame frame("QUELMKSPPromptUser", {}, OperationFrame::Cache::kKeep, "");
    frame.SetExitLineWithoutStatus("QUELMKSPPromptUser");
    return frame.Fail(NTE_NOT_SUPPORTED, "PromptUser is not supported");
}

SECURITY_STATUS FreeSecret(NCRYPT_PROV_HANDLE, NCRYPT_SECRET_HANDLE) {
    OperationFrame frame("QUELMKSPFreeSecret", {}, OperationFrame::Cache::kKeep);
    return frame.Fail(NTE_NOT_SUPPORTED, "FreeSecret is not supported.");
}

}  // namespace quelmksp
