#include <cstdio>
#include <string_view>
#include <vector>

#include "base64.h"
#include "client_error.h"
#include "command_line.h"
#include "commands.h"
#include "data_io.h"
#include "exit_codes.h"
#include "hash_option.h"
#include "key_access.h"
#include "key_command.h"
#include "status_messages.h"

namespace {

const CommandSyntax kSyntax{
    "verify",
    "usage: quelmksp verify KEY SIGFILE [--hash md5|sha1|sha256|sha512] [--base64]\n"
    "                       [--pin-stdin] [FILE|-]\n"
    "\n"
    "Hashes FILE (stdin when left out or -) and has the token check the\n"
    "PKCS#1 v1.5 signature in SIGFILE with KEY's public key. Prints\n"
    "\"signature OK\" and exits 0, or exits 1 when the signature does not match.\n"
    "\n"
    "  KEY          the key's name or its hexadecimal form (see 'quelmksp keys')\n"
    "  SIGFILE      the signature, raw (or base64 with --base64); - for stdin\n"
    "  --hash ALG   the hash the signature was made over; sha256 by default\n"
    "  --base64     SIGFILE holds base64\n"
    "  --pin-stdin  read the PIN line from stdin; SIGFILE and FILE must be files\n",
    {"--base64", "--pin-stdin"},
    {"--hash"},
    2,
    3};

SecretBytes ReadSignature(const ParsedCommand& parsed) {
    SecretBytes signature = ReadData(parsed.Operand(1));
    if (!parsed.Has("--base64")) return signature;
    std::optional<SecretBytes> decoded = Base64Decode(
        std::string_view(reinterpret_cast<const char*>(signature.data()), signature.size()));
    if (!decoded) throw ClientError(exit_code::kData, "the signature file is not base64");
    return *decoded;
}

}  // namespace

int RunVerify(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kSyntax.help, stdout);
        return exit_code::kOk;
    }
    HashAlgorithm algorithm = HashOption(parsed);
    const std::string signaturePath = parsed.Operand(1);
    const std::string dataPath = parsed.Operand(2, "-");
    if (signaturePath == "-" && dataPath == "-")
        throw UsageError("the signature and the data cannot both come from stdin");
    RequireFileDataWithPinStdin(parsed, signaturePath == "-" || dataPath == "-");
    UseBinaryStdio();
    SecretBytes signature = ReadSignature(parsed);
    std::vector<uint8_t> hash = HashFile(algorithm, dataPath);

    KeyCommand command(invocation, parsed);
    // Only a block of the key's length can be its signature; the provider
    // refuses others as bad parameters, which would read as its fault.
    const RsaPublicKey publicKey = PublicKeyOf(command.keyRef());
    if (signature.size() != publicKey.modulus.size())
        throw ClientError(
            exit_code::kSignatureMismatch,
            "the signature does not match: it is " + std::to_string(signature.size()) +
                " bytes, and a signature by this " + std::to_string(publicKey.Bits()) +
                "-bit key is " + std::to_string(publicKey.modulus.size()));
    Pkcs1PaddingInfo padding{CngAlgorithmId(algorithm)};
    SECURITY_STATUS status = command.table().VerifySignature(
        command.provider(), command.key(), &padding, hash.data(), static_cast<DWORD>(hash.size()),
        signature.data(), static_cast<DWORD>(signature.size()), NCRYPT_PAD_PKCS1_FLAG);
    // The token reports a signature that does not match as a failed check.
    if (status == NTE_FAIL || status == NTE_BAD_SIGNATURE)
        throw ClientError(exit_code::kSignatureMismatch,
                          StatusMessage(status, "the signature does not match the data"));
    command.Check(status, "verification");
    std::puts("signature OK");
    return exit_code::kOk;
}
