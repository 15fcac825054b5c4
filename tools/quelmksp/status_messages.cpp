#include "status_messages.h"

#include "client_error.h"
#include "diag/status_names.h"
#include "exit_codes.h"
#include "token_module.h"

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
                                  "(wrong or too short)"
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
            return operation + " failed in the provider; " + ProviderLogHint();
    }
}

void ThrowStatus(SECURITY_STATUS status, const std::string& meaning) {
    throw ClientError(ExitCodeForStatus(status), StatusMessage(status, meaning));
}

std::string ProviderLogHint() {
#ifdef _WIN32
    return "the provider's log (KSPLOG, KSPDIR in the registry) has the details";
#else
    return "QUELMKSP_DEBUG_OUTPUT=1 shows the provider's log on stderr";
#endif
}

std::string FolderOf(const std::string& path) {
    const size_t separator = path.find_last_of("/\\");
    return separator == std::string::npos ? std::string() : path.substr(0, separator + 1);
}

void ThrowLoginFailure(SECURITY_STATUS status, const std::string& operation, bool pinFromStdin,
                       const std::string& providerLibrary) {
    std::string why;
    std::unique_ptr<TokenModule> module = TokenModule::Open(FolderOf(providerLibrary), &why);
    ReaderFacts reader;
    const bool known = module && module->FirstToken(&reader);
    if (known && reader.token.pinLocked)
        throw ClientError(exit_code::kPinLocked,
                          StatusMessage(status, "the PIN of the token '" + reader.token.label +
                                                    "' is locked; it must be unblocked with the "
                                                    "security officer's PIN"));
    std::string meaning = KeyOperationMeaning(status, operation, pinFromStdin);
    if (known && reader.token.pinFinalTry)
        meaning += "; one try is left before the PIN locks";
    else if (known && reader.token.pinCountLow)
        meaning += "; the token has counted wrong PINs";
    throw ClientError(exit_code::kLogin, StatusMessage(status, meaning));
}
