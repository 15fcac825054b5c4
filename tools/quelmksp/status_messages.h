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

// Where the provider's own account of a failure is to be read.
std::string ProviderLogHint();

// A failed login, told by the token's flags: a locked PIN (exit code 12)
// from a wrong one or a cancelled dialog (exit code 5). providerLibrary
// locates the token module when it is found beside the provider.
[[noreturn]] void ThrowLoginFailure(SECURITY_STATUS status, const std::string& operation,
                                    bool pinFromStdin, const std::string& providerLibrary);

// The folder part of a path, with its separator; empty for a bare name.
std::string FolderOf(const std::string& path);
