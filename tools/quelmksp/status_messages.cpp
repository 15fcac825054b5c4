#include "status_messages.h"

#include "client_error.h"
#include "diag/status_names.h"
#include "exit_codes.h"

int ExitCodeForStatus(SECURITY_STATUS status) {
    switch (status) {
        case NTE_BAD_KEYSET:
            return exit_code::kNoSuchKey;
        case NTE_EXISTS:
            return exit_code::kExists;
        case SCARD_W_CANCELLED_BY_USER:
        case SCARD_W_WRONG_CHV:
        case SCARD_W_CHV_BLOCKED:
        case SCARD_E_CANCELLED:
            return exit_code::kLogin;
        default:
            return exit_code::kProvider;
    }
}

std::string StatusMessage(SECURITY_STATUS status, const std::string& meaning) {
    return std::string(StatusName(status)) + ": " + meaning;
}

std::string KeyOperationMeaning(SECURITY_STATUS status, const std::string& operation,
                                bool pinFromStdin) {
    switch (status) {
        case SCARD_W_CANCELLED_BY_USER:
            return pinFromStdin ? "the token did not take the PIN given with --pin-stdin "
                                  "(wrong, too short, or the PIN is locked)"
                                : "the PIN dialog was cancelled";
        case SCARD_W_CHV_BLOCKED:
            return "the PIN is locked";
        case SCARD_W_WRONG_CHV:
            return "wrong PIN";
        case NTE_NOT_FOUND:
            // The login flow answers this when its dialog cannot open.
            return "no PIN dialog could be shown (no terminal?); give the PIN with --pin-stdin";
        case NTE_NOT_SUPPORTED:
            return "the provider does not offer " + operation + " (yet)";
        case NTE_PERM:
            return "the key does not allow " + operation;
        default:
            return operation + " failed; the provider's log has the details";
    }
}

void ThrowStatus(SECURITY_STATUS status, const std::string& meaning) {
    throw ClientError(ExitCodeForStatus(status), StatusMessage(status, meaning));
}
