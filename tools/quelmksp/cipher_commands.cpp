// encrypt and decrypt: PKCS#1 v1.5 encryption with a token key, the public
// half to encrypt, the private half on the token to decrypt.
#include <cstdio>
#include <string>
#include <string_view>

#include "base64.h"
#include "client_error.h"
#include "command_line.h"
#include "commands.h"
#include "data_io.h"
#include "exit_codes.h"
#include "key_access.h"
#include "key_command.h"
#include "rsa_encryption.h"
#include "status_messages.h"

namespace {

// The bytes PKCS#1 v1.5 padding takes out of each block.
constexpr DWORD kPkcs1Overhead = 11;

const CommandSyntax kEncryptSyntax{
    "encrypt",
    "usage: quelmksp encrypt KEY [--base64] [-o FILE] [--pin-stdin] [FILE|-]\n"
    "\n"
    "Encrypts FILE (stdin when left out or -) with KEY's public key, PKCS#1\n"
    "v1.5, and writes the ciphertext to stdout. The input takes at most the\n"
    "key's length in bytes less 11 (245 bytes under a 2048-bit key).\n"
    "\n"
    "  KEY          the key's name or its hexadecimal form (see 'quelmksp keys')\n"
    "  --base64     write the ciphertext as one line of base64\n"
    "  -o FILE      write to FILE instead of stdout\n"
    "  --pin-stdin  read the PIN line from stdin; FILE must then be given\n",
    {"--base64", "--pin-stdin"},
    {"-o"},
    1,
    2};

const CommandSyntax kDecryptSyntax{
    "decrypt",
    "usage: quelmksp decrypt KEY [--base64] [-o FILE] [--pin-stdin] [FILE|-]\n"
    "\n"
    "Has the token decrypt the PKCS#1 v1.5 ciphertext in FILE (stdin when left\n"
    "out or -) with KEY's private key, and writes the plaintext to stdout.\n"
    "A ciphertext that the token refuses (made for another key, or damaged)\n"
    "ends with exit code 11.\n"
    "\n"
    "  KEY          the key's name or its hexadecimal form (see 'quelmksp keys')\n"
    "  --base64     the ciphertext is base64\n"
    "  -o FILE      write to FILE instead of stdout\n"
    "  --pin-stdin  read the PIN line from stdin; FILE must then be given\n",
    {"--base64", "--pin-stdin"},
    {"-o"},
    1,
    2};

constexpr char kProbe[] = "quelmksp: a test of the key's decryption";

void WriteResult(const SecretBytes& result, bool asBase64, const std::string& path) {
    if (asBase64) {
        std::string text = Base64Encode(result.data(), result.size()) + "\n";
        WriteOutput(path, reinterpret_cast<const uint8_t*>(text.data()), text.size());
    } else {
        WriteOutput(path, result.data(), result.size());
    }
}

SECURITY_STATUS TryDecrypt(const KeyCommand& command, const SecretBytes& ciphertext,
                           SecretBytes* plaintext) {
    auto* input = const_cast<uint8_t*>(ciphertext.data());
    const auto inputLength = static_cast<DWORD>(ciphertext.size());
    DWORD length = 0;
    SECURITY_STATUS status =
        command.table().Decrypt(command.provider(), command.key(), input, inputLength, nullptr,
                                nullptr, 0, &length, NCRYPT_PAD_PKCS1_FLAG);
    if (status != ERROR_SUCCESS) return status;
    SecretBytes output(length);
    status = command.table().Decrypt(command.provider(), command.key(), input, inputLength, nullptr,
                                     output.data(), length, &length, NCRYPT_PAD_PKCS1_FLAG);
    if (status != ERROR_SUCCESS) return status;
    output.resize(length);
    *plaintext = std::move(output);
    return ERROR_SUCCESS;
}

// Whether the key decrypts a message of the client's own, encrypted for it.
bool DecryptsProbe(const KeyCommand& command, const RsaPublicKey& publicKey) {
    const SecretBytes probe(kProbe, kProbe + sizeof kProbe - 1);
    SecretBytes echoed;
    try {
        return TryDecrypt(command, Pkcs1Encrypt(publicKey, probe), &echoed) == ERROR_SUCCESS &&
               echoed == probe;
    } catch (const ClientError&) {
        return false;
    }
}

}  // namespace

int RunEncrypt(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kEncryptSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kEncryptSyntax.help, stdout);
        return exit_code::kOk;
    }
    const std::string dataPath = parsed.Operand(1, "-");
    RequireFileDataWithPinStdin(parsed, dataPath == "-");
    UseBinaryStdio();
    SecretBytes plaintext = ReadData(dataPath);

    KeyCommand command(invocation, parsed);
    // An empty message is valid, but a null input is not.
    uint8_t none = 0;
    uint8_t* input = plaintext.empty() ? &none : plaintext.data();
    const auto inputLength = static_cast<DWORD>(plaintext.size());
    // The length is asked with a one-byte message: a token refuses the query
    // for an input too long to encrypt, and would only say that it failed,
    // where the user should learn the limit.
    DWORD length = 0;
    command.Check(command.table().Encrypt(command.provider(), command.key(), &none, 1, nullptr,
                                          nullptr, 0, &length, NCRYPT_PAD_PKCS1_FLAG),
                  "encryption");
    if (length <= kPkcs1Overhead || inputLength > length - kPkcs1Overhead)
        throw ClientError(
            exit_code::kData,
            "the input is " + std::to_string(inputLength) + " bytes; this key encrypts at most " +
                std::to_string(length > kPkcs1Overhead ? length - kPkcs1Overhead : 0) + " bytes");
    SecretBytes ciphertext(length);
    command.Check(
        command.table().Encrypt(command.provider(), command.key(), input, inputLength, nullptr,
                                ciphertext.data(), length, &length, NCRYPT_PAD_PKCS1_FLAG),
        "encryption");
    ciphertext.resize(length);
    WriteResult(ciphertext, parsed.Has("--base64"), parsed.Value("-o", "-"));
    return exit_code::kOk;
}

int RunDecrypt(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kDecryptSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kDecryptSyntax.help, stdout);
        return exit_code::kOk;
    }
    const std::string dataPath = parsed.Operand(1, "-");
    RequireFileDataWithPinStdin(parsed, dataPath == "-");
    UseBinaryStdio();
    SecretBytes ciphertext = ReadData(dataPath);
    if (parsed.Has("--base64")) {
        std::optional<SecretBytes> decoded = Base64Decode(
            std::string_view(reinterpret_cast<const char*>(ciphertext.data()), ciphertext.size()));
        if (!decoded) throw ClientError(exit_code::kData, "the ciphertext is not base64");
        ciphertext = std::move(*decoded);
    }
    if (ciphertext.empty()) throw ClientError(exit_code::kData, "the ciphertext is empty");

    KeyCommand command(invocation, parsed);
    const RsaPublicKey publicKey = PublicKeyOf(command.keyRef());
    if (ciphertext.size() != publicKey.modulus.size())
        throw ClientError(exit_code::kRefusedInput,
                          "the ciphertext is " + std::to_string(ciphertext.size()) +
                              " bytes, and one made for this " + std::to_string(publicKey.Bits()) +
                              "-bit key is " + std::to_string(publicKey.modulus.size()) +
                              ": it was made for another key, or it is damaged");
    SecretBytes plaintext;
    SECURITY_STATUS status = TryDecrypt(command, ciphertext, &plaintext);
    if (status != ERROR_SUCCESS && ExitCodeForStatus(status) != exit_code::kLogin) {
        // The token answers a ciphertext that is not for this key as it
        // would a fault. A message of the client's own, encrypted for the
        // same key, tells the two apart.
        if (DecryptsProbe(command, publicKey))
            throw ClientError(exit_code::kRefusedInput,
                              StatusMessage(status,
                                            "the token refused the ciphertext: it was made "
                                            "for another key, or it is damaged"));
    }
    command.Check(status, "decryption");
    WriteResult(plaintext, false, parsed.Value("-o", "-"));
    return exit_code::kOk;
}
