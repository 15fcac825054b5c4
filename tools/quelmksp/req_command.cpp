#include <cstdio>
#include <string>
#include <vector>

#include "certificate_request.h"
#include "client_error.h"
#include "command_line.h"
#include "commands.h"
#include "data_io.h"
#include "distinguished_name.h"
#include "exit_codes.h"
#include "hash_option.h"
#include "key_command.h"
#include "status_messages.h"

namespace {

const CommandSyntax kSyntax{
    "req",
    "usage: quelmksp req KEY --subject DN [--hash sha256|sha384|sha512] [-o FILE]\n"
    "                    [--pin-stdin]\n"
    "\n"
    "Writes a PKCS#10 certificate request in PEM for KEY's public key, signed\n"
    "by the token with KEY (PKCS#1 v1.5), to stdout or FILE, for a\n"
    "certification authority to issue a certificate from. Signing logs in.\n"
    "Not available in the Windows client.\n"
    "\n"
    "  KEY           the key's name or its hexadecimal form (see 'quelmksp keys')\n"
    "  --subject DN  the subject, \"/CN=name/O=org\" or \"CN=name,O=org\", in\n"
    "                the order the name is to be encoded in (the first\n"
    "                attribute first, as 'openssl req -subj' takes it and\n"
    "                OpenSSL prints names); a backslash takes the next\n"
    "                character as it is (\"CN=a\\,b\")\n"
    "  --hash ALG    sha256 (default), sha384 or sha512: the request is signed\n"
    "                with sha256WithRSAEncryption and so on\n"
    "  -o FILE       write to FILE instead of stdout\n"
    "  --pin-stdin   read the PIN line from stdin\n",
    {"--pin-stdin"},
    {"--subject", "--hash", "-o"},
    1,
    1};

}  // namespace

int RunReq(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kSyntax.help, stdout);
        return exit_code::kOk;
    }
    if (!parsed.values.count("--subject")) throw UsageError("--subject is required");
    const HashAlgorithm algorithm = HashOption(
        parsed, {HashAlgorithm::kSha256, HashAlgorithm::kSha384, HashAlgorithm::kSha512});
    CertificateRequest request(ParseDistinguishedName(parsed.Value("--subject", "")), algorithm);

    KeyCommand command(invocation, parsed);
    SecretBytes pem =
        request.SignedPem(PublicKeyOf(command.keyRef()), [&](const std::vector<uint8_t>& hash) {
            std::vector<uint8_t> signature;
            SECURITY_STATUS status = TrySignHashOnToken(command, algorithm, hash, &signature);
            // The provider signs a bare hash of the lengths it knows only.
            if (status == NTE_INVALID_PARAMETER)
                ThrowStatus(status, "the provider does not sign " + HashName(algorithm) +
                                        " hashes; try another --hash");
            command.Check(status, "signing");
            return signature;
        });
    WriteOutput(parsed.Value("-o", "-"), pem.data(), pem.size());
    return exit_code::kOk;
}
