#include "key_command.h"

#include "client_error.h"
#include "status_messages.h"

namespace {

std::unique_ptr<PinFeed> PinFeedIfAsked(const ParsedCommand& parsed) {
    return parsed.Has("--pin-stdin") ? PinFeed::FromStdin() : nullptr;
}

}  // namespace

void RequireFileDataWithPinStdin(const ParsedCommand& parsed, bool dataFromStdin) {
    if (parsed.Has("--pin-stdin") && dataFromStdin)
        throw UsageError("with --pin-stdin the data must come from a FILE operand, not stdin");
}

KeyCommand::KeyCommand(const Invocation& invocation, const ParsedCommand& parsed)
    : pin_(PinFeedIfAsked(parsed)),
      client_(invocation.library, invocation.interactive),
      session_(client_) {
    session_.OpenKey(parsed.Operand(0));
}

void KeyCommand::Check(SECURITY_STATUS status, const std::string& operation) const {
    if (status != ERROR_SUCCESS)
        ThrowStatus(status, KeyOperationMeaning(status, operation, pin_ != nullptr));
}
