#include "key_command.h"

#include "client_error.h"
#include "hash_option.h"
#include "status_messages.h"

namespace {

std::unique_ptr<PinFeed> PinFeedIfAsked(const Invocation& invocation, const ParsedCommand& parsed) {
    if (!parsed.Has("--pin-stdin")) return nullptr;
    // The card selection reads the same keystrokes as the PIN dialog: it
    // would take the PIN's digits for reader numbers.
    if (invocation.interactive) throw UsageError("--pin-stdin cannot be used with --interactive");
    return PinFeed::FromStdin();
}

}  // namespace

void RequireFileDataWithPinStdin(const ParsedCommand& parsed, bool dataFromStdin) {
    if (parsed.Has("--pin-stdin") && dataFromStdin)
        throw UsageError("with --pin-stdin the data must come from a FILE operand, not stdin");
}

KeyCommand::KeyCommand(const Invocation& invocation, const ParsedCommand& parsed)
    : pin_(PinFeedIfAsked(invocation, parsed)),
      client_(invocation.library, invocation.interactive),
      session_(client_) {
    session_.OpenKey(parsed.Operand(0));
}

KeyCommand::KeyCommand(const Invocation& invocation, const ParsedCommand& parsed, NoKeyYet)
    : pin_(PinFeedIfAsked(invocation, parsed)),
      client_(invocation.library, invocation.interactive),
      session_(client_) {}

void KeyCommand::Check(SECURITY_STATUS status, const std::string& operation) const {
    if (status == ERROR_SUCCESS) return;
    if (ExitCodeForStatus(status) == exit_code::kLogin)
        ThrowLoginFailure(status, operation, pin_ != nullptr, client_.libraryPath());
    ThrowStatus(status, KeyOperationMeaning(status, operation, pin_ != nullptr));
}

SECURITY_STATUS TrySignHashOnToken(const KeyCommand& command, HashAlgorithm algorithm,
                                   const std::vector<uint8_t>& hash,
                                   std::vector<uint8_t>* signature) {
    Pkcs1PaddingInfo padding{CngAlgorithmId(algorithm)};
    const DWORD flags = NCRYPT_PAD_PKCS1_FLAG;
    // The provider only reads the hash; the copy keeps the caller's const.
    std::vector<uint8_t> input = hash;
    const auto inputLength = static_cast<DWORD>(input.size());
    DWORD length = 0;
    SECURITY_STATUS status =
        command.table().SignHash(command.provider(), command.key(), &padding, input.data(),
                                 inputLength, nullptr, 0, &length, flags);
    if (status != ERROR_SUCCESS) return status;
    // An empty signature is the provider's fault; a null buffer would make
    // the second call another length query.
    if (length == 0) return NTE_INTERNAL_ERROR;
    signature->resize(length);
    status = command.table().SignHash(command.provider(), command.key(), &padding, input.data(),
                                      inputLength, signature->data(), length, &length, flags);
    signature->resize(status == ERROR_SUCCESS ? length : 0);
    return status;
}

std::vector<uint8_t> SignHashOnToken(const KeyCommand& command, HashAlgorithm algorithm,
                                     const std::vector<uint8_t>& hash) {
    std::vector<uint8_t> signature;
    command.Check(TrySignHashOnToken(command, algorithm, hash, &signature), "signing");
    return signature;
}
