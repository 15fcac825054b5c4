#include <cstdio>
#include <string>

#include "client_error.h"
#include "command_line.h"
#include "commands.h"
#include "data_io.h"
#include "exit_codes.h"
#include "key_command.h"
#include "public_key_encoding.h"

namespace {

const CommandSyntax kSyntax{
    "export",
    "usage: quelmksp export KEY [--format pem|der|blob] [-o FILE]\n"
    "\n"
    "Writes KEY's public key to stdout or FILE: as a SubjectPublicKeyInfo in\n"
    "PEM (\"BEGIN PUBLIC KEY\", the default) or DER, which 'openssl pkey\n"
    "-pubin' reads, or as the provider's RSAPUBLICBLOB (a BCRYPT_RSAKEY_BLOB:\n"
    "\"RSA1\", the bit length and the sizes, then the exponent and the\n"
    "modulus, big-endian). The Windows client writes only the blob.\n"
    "\n"
    "  KEY            the key's name or its hexadecimal form (see 'quelmksp keys')\n"
    "  --format FORM  pem (default), der or blob\n"
    "  -o FILE        write to FILE instead of stdout\n",
    {},
    {"--format", "-o"},
    1,
    1};

}  // namespace

int RunExport(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kSyntax.help, stdout);
        return exit_code::kOk;
    }
    const std::string format = parsed.Value("--format", "pem");
    if (format != "pem" && format != "der" && format != "blob")
        throw UsageError("unknown format '" + format + "': use pem, der or blob");
    UseBinaryStdio();

    KeyCommand command(invocation, parsed);
    SecretBytes output;
    if (format == "blob") {
        SECURITY_STATUS status = ExportRsaPublicBlob(command.keyRef(), &output);
        command.Check(status, "public key export");
    } else {
        output = SubjectPublicKeyInfo(PublicKeyOf(command.keyRef()),
                                      format == "pem" ? TextOrBinary::kPem : TextOrBinary::kDer);
    }
    WriteOutput(parsed.Value("-o", "-"), output.data(), output.size());
    return exit_code::kOk;
}
