#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iostream>
#include <string>

#include "client_error.h"
#include "command_line.h"
#include "commands.h"
#include "console.h"
#include "exit_codes.h"
#include "key_command.h"
#include "status_messages.h"

namespace {

const CommandSyntax kSyntax{
    "delete",
    "usage: quelmksp delete KEY [--yes]\n"
    "\n"
    "Deletes KEY's key pair from the token, the private key and then the\n"
    "public key. A certificate stored beside the key stays on the token.\n"
    "Asks first, on a terminal, and deletes on \"y\" or \"yes\" (exit code 1\n"
    "for any other answer). When stdin is not a terminal, --yes is required.\n"
    "The provider does not log in to delete; a token that wants a login\n"
    "first refuses, and the command says so.\n"
    "\n"
    "  KEY    the key's name or its hexadecimal form (see 'quelmksp keys')\n"
    "  --yes  delete without asking\n",
    {"--yes"},
    {},
    1,
    1};

bool Confirmed(const std::string& key) {
    std::fprintf(stderr, "Delete the key pair %s from the token? It cannot be undone. [y/N] ",
                 key.c_str());
    std::fflush(stderr);
    std::string answer;
    if (!std::getline(std::cin, answer)) return false;
    std::transform(answer.begin(), answer.end(), answer.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return answer == "y" || answer == "yes";
}

}  // namespace

int RunDelete(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kSyntax.help, stdout);
        return exit_code::kOk;
    }
    const bool ask = !parsed.Has("--yes");
    if (ask && !StdinIsTerminal())
        throw UsageError("stdin is not a terminal to ask on; --yes deletes without asking");

    KeyCommand command(invocation, parsed);
    const std::string key = parsed.Operand(0);
    if (ask && !Confirmed(key)) {
        std::fputs("not deleted\n", stderr);
        return exit_code::kSignatureMismatch;
    }
    SECURITY_STATUS status = command.table().DeleteKey(command.provider(), command.key(), 0);
    if (status == NTE_NOT_SUPPORTED) command.Check(status, "deleting keys");
    if (status != ERROR_SUCCESS)
        ThrowStatus(status,
                    "the key pair was not deleted (or not all of it); a token that wants a login "
                    "before a deletion refuses it, since the provider does not log in to delete");
    std::printf("deleted the key pair %s\n", key.c_str());
    return exit_code::kOk;
}
