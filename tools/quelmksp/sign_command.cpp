#include <cstdio>
#include <vector>

#include "base64.h"
#include "client_error.h"
#include "command_line.h"
#include "commands.h"
#include "data_io.h"
#include "exit_codes.h"
#include "hash_option.h"
#include "key_command.h"

namespace {

const CommandSyntax kSyntax{
    "sign",
    "usage: quelmksp sign KEY [--hash md5|sha1|sha256|sha512] [--base64] [-o FILE]\n"
    "                     [--pin-stdin] [FILE|-]\n"
    "\n"
    "Hashes FILE (stdin when left out or -) and has the token sign the hash\n"
    "with KEY (PKCS#1 v1.5). Writes the raw signature to stdout. The file is\n"
    "hashed as it is read, so its size does not matter.\n"
    "\n"
    "  KEY          the key's name or its hexadecimal form (see 'quelmksp keys')\n"
    "  --hash ALG   md5, sha1, sha256 (default) or sha512\n"
    "  --base64     write the signature as one line of base64\n"
    "  -o FILE      write to FILE instead of stdout\n"
    "  --pin-stdin  read the PIN line from stdin; FILE must then be given\n",
    {"--base64", "--pin-stdin"},
    {"--hash", "-o"},
    1,
    2};

}  // namespace

int RunSign(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kSyntax.help, stdout);
        return exit_code::kOk;
    }
    HashAlgorithm algorithm = HashOption(parsed);
    const std::string dataPath = parsed.Operand(1, "-");
    RequireFileDataWithPinStdin(parsed, dataPath == "-");
    UseBinaryStdio();
    std::vector<uint8_t> hash = HashFile(algorithm, dataPath);

    KeyCommand command(invocation, parsed);
    std::vector<uint8_t> signature = SignHashOnToken(command, algorithm, hash);
    if (parsed.Has("--base64")) {
        std::string text = Base64Encode(signature.data(), signature.size()) + "\n";
        WriteOutput(parsed.Value("-o", "-"), reinterpret_cast<const uint8_t*>(text.data()),
                    text.size());
    } else {
        WriteOutput(parsed.Value("-o", "-"), signature.data(), signature.size());
    }
    return exit_code::kOk;
}
