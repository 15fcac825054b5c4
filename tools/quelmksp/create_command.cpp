// create: a key pair generated on the token through CreatePersistedKey and
// FinalizeKey, then found again among the listed keys, because the token
// names keys after the random CKA_ID it gives them, not after their label.
#include <cstdio>
#include <optional>
#include <string>

#include "client_error.h"
#include "command_line.h"
#include "commands.h"
#include "exit_codes.h"
#include "key_command.h"
#include "key_enumeration.h"
#include "key_name_text.h"
#include "platform/text.h"
#include "progress.h"
#include "status_messages.h"

namespace {

const CommandSyntax kSyntax{
    "create",
    "usage: quelmksp create NAME [--length BITS] [--usage sign|exchange|both]\n"
    "                       [--overwrite] [--pin-stdin]\n"
    "\n"
    "Generates an RSA key pair on the token with the label NAME, and prints\n"
    "the name under which 'quelmksp keys' lists it, readably and in\n"
    "hexadecimal: the token names a key after the random CKA_ID it gives it,\n"
    "not after its label, and the other commands take that name. Generating\n"
    "logs in (the PIN dialog asks for the PIN) and takes up to a second on a\n"
    "software token, several on a card; on a terminal a progress indicator\n"
    "runs on stderr meanwhile.\n"
    "\n"
    "  NAME           the label of the key pair\n"
    "  --length BITS  512 to 4096 in steps of 512; by default the registry\n"
    "                 value \"Default Key Length\"\n"
    "  --usage USE    sign, exchange (decryption) or both (the default): the\n"
    "                 usage the provider records when it creates the key.\n"
    "                 The token itself allows every key pair it generates to\n"
    "                 sign, verify, encrypt and decrypt, whatever is asked.\n"
    "  --overwrite    replace the key pair labelled NAME; without it such a\n"
    "                 key pair is an error (exit code 7)\n"
    "  --pin-stdin    read the PIN line from stdin\n",
    {"--overwrite", "--pin-stdin"},
    {"--length", "--usage"},
    1,
    1};

constexpr DWORD kAtKeyExchange = 1;
constexpr DWORD kAtSignature = 2;

struct Usage {
    DWORD legacyKeySpec;
    DWORD keyUsage;
};

Usage UsageOption(const ParsedCommand& parsed) {
    const std::string usage = parsed.Value("--usage", "both");
    if (usage == "sign") return {kAtSignature, NCRYPT_ALLOW_SIGNING_FLAG};
    if (usage == "exchange") return {kAtKeyExchange, NCRYPT_ALLOW_DECRYPT_FLAG};
    if (usage == "both") return {0, NCRYPT_ALLOW_SIGNING_FLAG | NCRYPT_ALLOW_DECRYPT_FLAG};
    throw UsageError("unknown usage '" + usage + "': use sign, exchange or both");
}

std::optional<DWORD> LengthOption(const ParsedCommand& parsed) {
    const std::string text = parsed.Value("--length", "");
    if (text.empty()) return std::nullopt;
    if (text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos)
        throw UsageError("the length '" + text + "' is not a number of bits");
    return static_cast<DWORD>(std::stoul(text));
}

void SetDword(const KeyCommand& command, LPCWSTR property, DWORD value, SECURITY_STATUS* status) {
    *status = command.table().SetKeyProperty(command.provider(), command.key(), property,
                                             reinterpret_cast<PBYTE>(&value), sizeof value, 0);
}

}  // namespace

int RunCreate(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kSyntax.help, stdout);
        return exit_code::kOk;
    }
    const std::string label = parsed.Operand(0);
    bool valid = false;
    const platform::WideString wideLabel = platform::FromUtf8(label, &valid);
    if (label.empty()) throw UsageError("the name is empty");
    if (!valid) throw UsageError("the name is not valid UTF-8");
    const Usage usage = UsageOption(parsed);
    const std::optional<DWORD> length = LengthOption(parsed);

    KeyCommand command(invocation, parsed, KeyCommand::NoKeyYet{});
    const DWORD flags = parsed.Has("--overwrite") ? NCRYPT_OVERWRITE_KEY_FLAG : 0;
    SECURITY_STATUS status = command.session().CreateKey(wideLabel, usage.legacyKeySpec, flags);
    if (status == NTE_EXISTS)
        throw ClientError(exit_code::kExists,
                          StatusMessage(status, "a key pair labelled '" + label +
                                                    "' is on the token; --overwrite replaces it"));
    // The provider reads the default length when it creates the key, even
    // when --length follows, and fails without it.
    if (status == NTE_INTERNAL_ERROR)
        ThrowStatus(status,
                    "key creation failed; the provider needs the registry value "
                    "\"Default Key Length\", and its log has the details");
    command.Check(status, "key creation");
    if (length) {
        SetDword(command, NCRYPT_LENGTH_PROPERTY, *length, &status);
        if (status == NTE_NOT_SUPPORTED || status == NTE_INVALID_PARAMETER)
            ThrowStatus(status, "the provider makes no " + std::to_string(*length) +
                                    "-bit keys (512 to 4096 bits in steps of 512)");
        command.Check(status, "setting the key length");
    }
    SetDword(command, NCRYPT_KEY_USAGE_PROPERTY, usage.keyUsage, &status);
    command.Check(status, "setting the key usage");

    DWORD bits = 0;
    std::string what = "generating the key pair on the token";
    if (ReadKeyDword(command.keyRef(), NCRYPT_LENGTH_PROPERTY, &bits) == ERROR_SUCCESS)
        what = "generating a " + std::to_string(bits) + "-bit key pair on the token";
    {
        ProgressIndicator progress(what);
        status = command.table().FinalizeKey(command.provider(), command.key(), 0);
    }
    if (status == NTE_INVALID_PARAMETER)
        ThrowStatus(status, "the token cannot take '" + label + "' as a label (too long?)");
    command.Check(status, "key generation");

    const RsaPublicKey publicKey = PublicKeyOf(command.keyRef());
    std::optional<platform::WideString> name = ListedNameOf(command.session(), publicKey);
    if (!name)
        throw ClientError(exit_code::kProvider,
                          "the key pair labelled '" + label +
                              "' was generated, but no key that 'quelmksp keys' lists has its "
                              "public key");
    std::printf("label  %s\nname   %s\nhex    %s\nbits   %zu\n", label.c_str(),
                ReadableKeyName(*name).c_str(), HexKeyName(*name).c_str(), publicKey.Bits());
    return exit_code::kOk;
}
