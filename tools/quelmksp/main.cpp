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
#include "provider_location.h"

namespace {

const char kUsage[] =
    "usage: quelmksp [--provider LIBRARY] [--interactive] COMMAND [ARGS]\n"
    "       quelmksp --version\n"
    "\n"
    "Commands:\n"
    "  info      show the provider, its properties, the token and its PIN\n"
    "            state, and the number of keys (--table: the function table)\n"
    "  readers   list the readers and the token in each\n"
    "  keys      list the keys on the token, by name and hexadecimal form\n"
    "            (--long: length, usage and certificate subject)\n"
    "  create    generate a key pair on the token\n"
    "  export    write a key's public key (PEM, DER or the provider's blob)\n"
    "  req       make a certificate request signed by a token key\n"
    "  cert put  store a certificate beside a key\n"
    "  cert get  write the certificate stored beside a key\n"
    "  delete    delete a key pair from the token\n"
    "  import    put a key from a PEM, DER or PKCS#12 file, or a wrapped blob,\n"
    "            on the token\n"
    "  wrap      make a key blob that only a token key can unwrap\n"
    "  certs     list the token's certificates: the root and the user store\n"
    "  sign      hash a file and sign the hash with a token key\n"
    "  verify    check a signature over a file with a token key\n"
    "  encrypt   encrypt a short message with a token key (PKCS#1 v1.5)\n"
    "  decrypt   decrypt a message with a token key\n"
    "  readers   list the PC/SC readers, their cards and their token slots\n"
    "  register  register the provider with CNG and write its default\n"
    "            configuration (on Linux: the configuration file)\n"
    "  unregister  remove the provider from CNG and its configuration\n"
    "\n"
    "Options:\n"
    "  --provider LIBRARY   the provider library to load (default: the one\n"
    "                       beside this program; on Windows, failing that,\n"
    "                       the one in the system folder)\n"
    "  --version            print the client's version\n"
    "  --interactive        open the provider without NCRYPT_SILENT_FLAG: with\n"
    "                       several tokens or none, the provider asks for the\n"
    "                       reader in its card selection dialog\n"
    "\n"
    "Commands that write take -o FILE; info, readers, keys and certs take\n"
    "--format json. 'quelmksp COMMAND --help' describes a command.\n"
    "\n"
    "Environment: QUELMKSP_REGISTRY names the provider's registry file (Linux;\n"
    "default /etc/velmora/quelmksp.reg), QUELMKSP_DEBUG_OUTPUT=1 sends the\n"
    "provider's log to stderr (Linux), QUELMKSP_PKCS11_MODULE names the token\n"
    "module.\n"
    "\n"
    "Exit codes: 0 success, 1 signature does not match or deletion not\n"
    "confirmed, 2 usage error, 3 the provider could not be loaded or failed,\n"
    "4 no such key, 5 PIN refused or login cancelled, 6 input or output error,\n"
    "7 key or certificate exists already, 8 certificate for another key, 9 no\n"
    "certificate, 10 not available in the Windows client, 11 the token refused\n"
    "the input, 12 the PIN is locked, 13 CNG's registration functions are\n"
    "stubs (Wine).\n";

const char kCertUsage[] =
    "usage: quelmksp cert put KEY FILE [--force]\n"
    "       quelmksp cert get KEY [--format pem|der] [-o FILE]\n"
    "\n"
    "The X.509 certificate the token keeps beside a key.\n"
    "'quelmksp cert put --help' and 'quelmksp cert get --help' say more.\n";

struct Command {
    // One word, or two for the commands under "cert".
    const char* name;
    int (*run)(const Invocation&);
};

const Command kCommands[] = {
    {"info", RunInfo},        {"keys", RunKeys},         {"create", RunCreate},
    {"export", RunExport},    {"req", RunReq},           {"cert put", RunCertPut},
    {"cert get", RunCertGet}, {"delete", RunDelete},     {"sign", RunSign},
    {"verify", RunVerify},    {"encrypt", RunEncrypt},   {"decrypt", RunDecrypt},
    {"import", RunImport},    {"wrap", RunWrap},         {"certs", RunCerts},
    {"readers", RunReaders},  {"register", RunRegister}, {"unregister", RunUnregister}};

// How many of the leading arguments name the command: 0 when they do not.
size_t WordsMatched(const Command& command, const std::vector<std::string>& args) {
    const std::string name = command.name;
    const size_t space = name.find(' ');
    if (space == std::string::npos) return args[0] == name ? 1 : 0;
    return args.size() > 1 && args[0] == name.substr(0, space) && args[1] == name.substr(space + 1)
               ? 2
               : 0;
}

int Fail(const std::string& message) {
    std::fprintf(stderr, "quelmksp: %s\n", message.c_str());
    return exit_code::kProvider;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    Invocation invocation{DefaultProviderLibrary(), {}};
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
    if (!args.empty() && args[0] == "--version") {
        std::printf("quelmksp %s (Velmora KSP client)\n", QUELMKSP_CLIENT_VERSION);
        return exit_code::kOk;
    }
    if (args.empty() || args[0] == "--help" || args[0] == "-h") {
        std::fputs(kUsage, args.empty() ? stderr : stdout);
        return args.empty() ? exit_code::kUsage : exit_code::kOk;
    }
    const Command* command = nullptr;
    size_t words = 0;
    for (const Command& candidate : kCommands) {
        if (size_t matched = WordsMatched(candidate, args)) {
            command = &candidate;
            words = matched;
        }
    }
    if (!command && args[0] == "cert") {
        const bool help = args.size() > 1 && (args[1] == "--help" || args[1] == "-h");
        if (args.size() > 1 && !help)
            std::fprintf(stderr, "quelmksp: unknown command 'cert %s'\n\n", args[1].c_str());
        std::fputs(kCertUsage, help ? stdout : stderr);
        return help ? exit_code::kOk : exit_code::kUsage;
    }
    if (!command) {
        std::fprintf(stderr, "quelmksp: unknown command '%s'\n\n%s", args[0].c_str(), kUsage);
        return exit_code::kUsage;
    }
    invocation.args.assign(args.begin() + static_cast<std::ptrdiff_t>(words), args.end());
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
