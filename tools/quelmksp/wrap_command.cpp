// wrap: a key blob made for 'import --wrapped-by': the first 8 bytes of the
// BCRYPT_RSAKEY_BLOB in clear, then one PKCS#1 v1.5 block for the wrapping
// key holding the rest of the blob and 8 more bytes, which the provider
// needs because it counts the unwrapped blob only as long as the plaintext.
#include <cstdio>
#include <string>

#include "client_error.h"
#include "command_line.h"
#include "commands.h"
#include "data_io.h"
#include "exit_codes.h"
#include "key_command.h"
#include "key_file.h"
#include "rsa_encryption.h"

namespace {

const CommandSyntax kSyntax{
    "wrap",
    "usage: quelmksp wrap --for KEY FILE [-o BLOBFILE] [--public] [--password-stdin]\n"
    "\n"
    "Makes, from the RSA key in FILE (read as 'quelmksp import' reads it), a\n"
    "key blob that only the token key KEY can unwrap, for 'quelmksp import\n"
    "--wrapped-by KEY BLOBFILE'. The blob's first 8 bytes stay in clear; the\n"
    "rest, and 8 bytes of zeros, are encrypted with KEY's public key in ONE\n"
    "PKCS#1 v1.5 block. No PIN is needed.\n"
    "\n"
    "A blob fits when its length is at most KEY's length in bytes less 11.\n"
    "With the exponent 65537 an n-bit public blob takes 27 + n/8 bytes and a\n"
    "private blob 27 + n/4 bytes, so:\n"
    "  1024-bit public blob,  155 bytes: a 2048-bit KEY (room for 245 bytes)\n"
    "  2048-bit public blob,  283 bytes: a 2560-bit KEY (309 bytes)\n"
    "   512-bit private blob, 155 bytes: a 2048-bit KEY (245 bytes)\n"
    "  1024-bit private blob, 283 bytes: a 2560-bit KEY (309 bytes)\n"
    "  1536-bit private blob, 411 bytes: a 3584-bit KEY (437 bytes)\n"
    "A 2048-bit private blob (539 bytes) fits no key of 4096 bits or less.\n"
    "\n"
    "  --for KEY         the wrapping key on the token: its name or its\n"
    "                    hexadecimal form (see 'quelmksp keys')\n"
    "  -o BLOBFILE       write the blob to BLOBFILE instead of stdout\n"
    "  --public          wrap only the public half of a private key\n"
    "  --password-stdin  read the passphrase of FILE from stdin\n",
    {"--public", "--password-stdin"},
    {"--for", "-o"},
    1,
    1};

constexpr size_t kClearBytes = 8;
constexpr size_t kTrailingBytes = 8;
constexpr size_t kPkcs1Overhead = 11;

}  // namespace

int RunWrap(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kSyntax.help, stdout);
        return exit_code::kOk;
    }
    if (!parsed.values.count("--for")) throw UsageError("--for KEY is required");
    const std::string path = parsed.Operand(0);
    if (path == "-" && parsed.Has("--password-stdin"))
        throw UsageError("with --password-stdin the key must come from a file");
    UseBinaryStdio();
    SecretBytes fileBytes = ReadData(path);
    Passphrase passphrase;
    if (parsed.Has("--password-stdin")) passphrase = Passphrase{true, ReadPassphraseLine()};
    KeyFile file = ReadKeyFile(fileBytes, path, passphrase, parsed.Has("--public"));

    KeyCommand command(invocation, parsed, KeyCommand::NoKeyYet{});
    command.session().OpenKey(parsed.Value("--for", ""));
    const RsaPublicKey wrappingKey = PublicKeyOf(command.keyRef());
    const size_t modulusSize = wrappingKey.modulus.size();
    const size_t room = modulusSize > kPkcs1Overhead ? modulusSize - kPkcs1Overhead : 0;
    if (file.blob.size() - kClearBytes + kTrailingBytes > room)
        throw ClientError(exit_code::kData,
                          "the " + std::string(file.isPrivate ? "private" : "public") +
                              " blob takes " + std::to_string(file.blob.size()) + " bytes; the " +
                              std::to_string(wrappingKey.Bits()) + "-bit key " +
                              parsed.Value("--for", "") + " wraps at most " + std::to_string(room) +
                              " (see 'quelmksp wrap --help')");
    SecretBytes payload(file.blob.begin() + kClearBytes, file.blob.end());
    payload.resize(payload.size() + kTrailingBytes, 0);
    SecretBytes ciphertext = Pkcs1Encrypt(wrappingKey, payload);
    SecretBytes blob(file.blob.begin(), file.blob.begin() + kClearBytes);
    blob.insert(blob.end(), ciphertext.begin(), ciphertext.end());
    WriteOutput(parsed.Value("-o", "-"), blob.data(), blob.size());
    return exit_code::kOk;
}
