// quelmksp: the command-line client of the Velmora key storage provider.
// It loads the provider as the key storage router does and drives it
// through its function table.
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "client_error.h"
#include "commands.h"
#include "exit_codes.h"
#include "provider_client.h"

namespace {

const char kUsage[] =
    "usage: quelmksp [--provider LIBRARY] [--interactive] COMMAND [ARGS]\n"
    "\n"
    "Commands:\n"
    "  info      load the provider, show its function table, and open and free\n"
    "            a provider on the token\n"
    "  keys      list the keys on the token, by name and hexadecimal form\n"
    "  sign      hash a file and sign the hash with a token key\n"
    "  verify    check a signature over a file with a token key\n"
    "  encrypt   encrypt a short message with a token key (PKCS#1 v1.5)\n"
    "  decrypt   decrypt a message with a token key\n"
    "  readers   list the PC/SC readers, their cards and their token slots\n"
    "\n"
    "Options:\n"
    "  --provider LIBRARY   the provider library to load (default: the one\n"
    "                       beside this program)\n"
    "  --interactive        open the provider without NCRYPT_SILENT_FLAG: with\n"
    "                       several tokens or none, the provider asks for the\n"
    "                       reader in its card selection dialog\n"
    "\n"
    "'quelmksp COMMAND --help' describes a command. Exit codes: 0 success,\n"
    "1 signature does not match, 2 usage error, 3 provider failure, 4 no such\n"
    "key, 5 PIN refused or login cancelled, 6 input or output error.\n";

struct Command {
    const char* name;
    int (*run)(const Invocation&);
};

const Command kCommands[] = {
    {"info", RunInfo},       {"keys", RunKeys},       {"sign", RunSign},      {"verify", RunVerify},
    {"encrypt", RunEncrypt}, {"decrypt", RunDecrypt}, {"readers", RunReaders}};

int Fail(const std::string& message) {
    std::fprintf(stderr, "quelmksp: %s\n", message.c_str());
    return exit_code::kProvider;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    Invocation invocation{platform::OwnFolder() + ProviderClient::kDefaultLibrary, {}};
    while (!args.empty() && (args[0] == "--provider" || args[0] == "--interactive")) {
        if (args[0] == "--interactive") {
            invocation.interactive = true;
            args.erase(args.begin());
            continue;
        }
        if (args.size() < 2) {
            std::fprintf(stderr, "quelmksp: --provider needs a value\n\n%s", kUsage);
            return exit_code::kUsage;
        }
        invocation.library = args[1];
        args.erase(args.begin(), args.begin() + 2);
    }
    if (args.empty() || args[0] == "--help" || args[0] == "-h") {
        std::fputs(kUsage, args.empty() ? stderr : stdout);
        return args.empty() ? exit_code::kUsage : exit_code::kOk;
    }
    const Command* command = nullptr;
    for (const Command& candidate : kCommands)
        if (args[0] == candidate.name) command = &candidate;
    if (!command) {
        std::fprintf(stderr, "quelmksp: unknown command '%s'\n\n%s", args[0].c_str(), kUsage);
        return exit_code::kUsage;
    }
    invocation.args.assign(args.begin() + 1, args.end());
    try {
        return command->run(invocation);
    } catch (const UsageError& error) {
        std::fprintf(stderr, "quelmksp %s: %s\nTry 'quelmksp %s --help'.\n", command->name,
                     error.what(), command->name);
        return error.exitCode();
    } catch (const ClientError& error) {
        std::fprintf(stderr, "quelmksp %s: %s\n", command->name, error.what());
        return error.exitCode();
    } catch (const std::bad_alloc&) {
        return Fail("out of memory");
    } catch (const std::exception& error) {
        return Fail(error.what());
    }
}
