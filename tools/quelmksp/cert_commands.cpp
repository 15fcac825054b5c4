// cert put and cert get: the X.509 certificate the token keeps beside a key,
// reached through the key's SmartCardKeyCertificate property.
#include <cstdio>
#include <optional>
#include <string>

#include "certificate.h"
#include "client_error.h"
#include "command_line.h"
#include "commands.h"
#include "data_io.h"
#include "exit_codes.h"
#include "key_command.h"
#include "status_messages.h"

namespace {

const CommandSyntax kPutSyntax{
    "cert put",
    "usage: quelmksp cert put KEY FILE [--force]\n"
    "\n"
    "Stores the X.509 certificate in FILE (PEM or DER; - for stdin) on the\n"
    "token beside KEY. A key holds one certificate: a second one is refused\n"
    "(exit code 7). A certificate whose public key is not KEY's is refused\n"
    "(exit code 8) unless --force is given.\n"
    "\n"
    "  KEY      the key's name or its hexadecimal form (see 'quelmksp keys')\n"
    "  --force  store the certificate even if its public key is not KEY's\n",
    {"--force"},
    {},
    2,
    2};

const CommandSyntax kGetSyntax{
    "cert get",
    "usage: quelmksp cert get KEY [--format pem|der] [-o FILE]\n"
    "\n"
    "Writes the certificate stored beside KEY, in PEM (default) or DER, to\n"
    "stdout or FILE. Exits 9 when KEY has no certificate.\n"
    "\n"
    "  KEY            the key's name or its hexadecimal form (see 'quelmksp keys')\n"
    "  --format FORM  pem (default) or der\n"
    "  -o FILE        write to FILE instead of stdout\n",
    {},
    {"--format", "-o"},
    1,
    1};

std::string SubjectText(const SecretBytes& der) {
    std::optional<std::string> subject = CertificateSubject(der);
    return subject && !subject->empty() ? *subject : "(no subject)";
}

}  // namespace

int RunCertPut(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kPutSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kPutSyntax.help, stdout);
        return exit_code::kOk;
    }
    UseBinaryStdio();
    SecretBytes der = CertificateDer(ReadData(parsed.Operand(1)));

    KeyCommand command(invocation, parsed);
    if (!parsed.Has("--force")) {
        std::optional<RsaPublicKey> certified = CertificatePublicKey(der);
        if (!certified || !(*certified == PublicKeyOf(command.keyRef())))
            throw ClientError(exit_code::kOtherKey,
                              std::string(certified ? "the certificate's public key is not the "
                                                      "key's"
                                                    : "the certificate is not for an RSA key") +
                                  "; --force stores it all the same");
    }
    SECURITY_STATUS status = command.table().SetKeyProperty(command.provider(), command.key(),
                                                            NCRYPT_CERTIFICATE_PROPERTY, der.data(),
                                                            static_cast<DWORD>(der.size()), 0);
    if (status == NTE_EXISTS)
        throw ClientError(exit_code::kExists,
                          StatusMessage(status,
                                        "the key has a certificate already; a key holds "
                                        "one"));
    command.Check(status, "storing a certificate");
    std::printf("stored the certificate for %s with key %s\n", SubjectText(der).c_str(),
                parsed.Operand(0).c_str());
    return exit_code::kOk;
}

int RunCertGet(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kGetSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kGetSyntax.help, stdout);
        return exit_code::kOk;
    }
    const std::string format = parsed.Value("--format", "pem");
    if (format != "pem" && format != "der")
        throw UsageError("unknown format '" + format + "': use pem or der");
    UseBinaryStdio();

    KeyCommand command(invocation, parsed);
    SecretBytes der;
    SECURITY_STATUS status = ReadKeyProperty(command.keyRef(), NCRYPT_CERTIFICATE_PROPERTY, &der);
    if (status == NTE_NOT_FOUND)
        throw ClientError(exit_code::kNoCertificate,
                          StatusMessage(status, "the key has no certificate"));
    command.Check(status, "reading the certificate");
    SecretBytes output = format == "pem" ? CertificatePem(der) : der;
    WriteOutput(parsed.Value("-o", "-"), output.data(), output.size());
    return exit_code::kOk;
}
