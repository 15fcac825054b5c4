// Provider statuses as the user reads them: the status name, then what it
// means for the command, and the exit code that class of failure gets.
#pragma once

#include <string>

#include "provider/ncrypt_provider.h"

int ExitCodeForStatus(SECURITY_STATUS status);

// "NAME: meaning", ready to print.
std::string StatusMessage(SECURITY_STATUS status, const std::string& meaning);

// What a failed operation on a key means. operation is a verb phrase such as
// "signing"; pinFromStdin says whether --pin-stdin fed the PIN dialog, since
// a PIN it refuses leaves the dialog waiting until the input ends.
std::string KeyOperationMeaning(SECURITY_STATUS status, const std::string& operation,
                                bool pinFromStdin);

[[noreturn]] void ThrowStatus(SECURITY_STATUS status, const std::string& meaning);
