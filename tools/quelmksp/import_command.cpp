// import: a key pair or public key from a file, or a blob wrapped for a
// token key, put on the token through ImportKey, then found again among
// the listed keys, which the token names after the random CKA_ID it gives
// an imported key, not after its name.
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
#include "key_enumeration.h"
#include "key_file.h"
#include "key_name_text.h"
#include "platform/text.h"
#include "status_messages.h"

namespace {

const CommandSyntax kSyntax{
    "import",
    "usage: quelmksp import FILE [--name NAME] [--public] [--no-finalize]\n"
    "                       [--password-stdin] [--pin-stdin]\n"
    "       quelmksp import --wrapped-by KEY BLOBFILE [--name NAME] [--no-finalize]\n"
    "                       [--pin-stdin]\n"
    "\n"
    "Puts a key on the token through the provider's ImportKey and prints the\n"
    "name under which 'quelmksp keys' lists it, readably and in hexadecimal:\n"
    "the token names an imported key after a random CKA_ID, not after NAME.\n"
    "\n"
    "FILE holds an RSA private key in PEM or DER (PKCS#1 or PKCS#8; an\n"
    "encrypted one asks for its passphrase on the terminal), a public key\n"
    "(SubjectPublicKeyInfo or PKCS#1), or a PKCS#12 bundle, whose certificate\n"
    "is stored beside the imported key. A private key becomes a key pair on\n"
    "the token; a public key alone becomes a public key object, labelled NAME,\n"
    "or, without NAME, a session object that ends with the command. Importing\n"
    "a named key logs in (the PIN dialog asks for the PIN); every import\n"
    "leaves the token logged out.\n"
    "\n"
    "BLOBFILE holds a key blob wrapped for the token key KEY by 'quelmksp\n"
    "wrap'; the token unwraps it with KEY's private key, after a login.\n"
    "\n"
    "  --name NAME       the label of the imported key\n"
    "  --public          import only the public half of a private key\n"
    "  --no-finalize     import a private key in two steps, as applications\n"
    "                    that set properties between them do: ImportKey with\n"
    "                    NCRYPT_DO_NOT_FINALIZE_FLAG, then FinalizeKey\n"
    "  --password-stdin  read the passphrase of FILE (a PEM or PKCS#12\n"
    "                    password) as the first line of stdin\n"
    "  --pin-stdin       read the PIN line from stdin, after the passphrase\n"
    "                    line when --password-stdin is given too\n"
    "  --wrapped-by KEY  BLOBFILE is wrapped for the token key KEY\n",
    {"--public", "--no-finalize", "--password-stdin", "--pin-stdin"},
    {"--name", "--wrapped-by"},
    1,
    1};

constexpr size_t kClearBytes = 8;
constexpr uint32_t kRsaPublicMagic = 0x31415352;   // "RSA1"
constexpr uint32_t kRsaPrivateMagic = 0x32415352;  // "RSA2"

LPCWSTR BlobType(bool isPrivate) {
    return isPrivate ? QKSP_TEXT("RSAPRIVATEBLOB") : QKSP_TEXT("RSAPUBLICBLOB");
}

// Whether a wrapped blob holds a private key, from its magic in clear.
bool WrappedBlobIsPrivate(const SecretBytes& blob, const std::string& path) {
    uint32_t magic = 0;
    for (size_t i = 0; i < 4 && i < blob.size(); ++i) magic |= uint32_t{blob[i]} << (8 * i);
    if (blob.size() <= kClearBytes || (magic != kRsaPublicMagic && magic != kRsaPrivateMagic))
        throw ClientError(exit_code::kData,
                          "'" + path + "' is not a key blob made by 'quelmksp wrap'");
    return magic == kRsaPrivateMagic;
}

void CheckImport(const KeyCommand& command, SECURITY_STATUS status, const std::string& name,
                 bool wrapped) {
    if (status == NTE_BAD_DATA)
        ThrowStatus(status, wrapped ? "the provider refused the unwrapped key blob (cut short, or "
                                      "wrapped without its 8 trailing bytes?)"
                                    : "the provider refused the key blob");
    if (status == NTE_INVALID_PARAMETER && !name.empty())
        ThrowStatus(status, "the token cannot take '" + name + "' as a label (too long?)");
    if (wrapped && (status == NTE_FAIL || status == NTE_INTERNAL_ERROR || status == NTE_PERM))
        ThrowStatus(status,
                    "the token could not unwrap the blob with the wrapping key (was it "
                    "wrapped for another key?)");
    command.Check(status, "the import");
}

// Stores a PKCS#12 bundle's certificate on the key listed under name.
void StoreCertificate(const ProviderSession& session, const platform::WideString& name,
                      SecretBytes& der) {
    OpenedKey key(session);
    SECURITY_STATUS status = key.Open(name);
    if (status == ERROR_SUCCESS)
        status = session.table().SetKeyProperty(session.provider(), key.ref().key,
                                                NCRYPT_CERTIFICATE_PROPERTY, der.data(),
                                                static_cast<DWORD>(der.size()), 0);
    if (status != ERROR_SUCCESS)
        ThrowStatus(status,
                    "the key was imported, but the bundle's certificate could not be stored "
                    "beside it; 'quelmksp cert put' can try again");
}

}  // namespace

int RunImport(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kSyntax.help, stdout);
        return exit_code::kOk;
    }
    const std::string path = parsed.Operand(0);
    const std::string label = parsed.Value("--name", "");
    const std::string wrappingKey = parsed.Value("--wrapped-by", "");
    const bool wrapped = parsed.values.count("--wrapped-by") != 0;
    bool valid = false;
    const platform::WideString wideLabel = platform::FromUtf8(label, &valid);
    if (!valid) throw UsageError("the name is not valid UTF-8");
    if (parsed.values.count("--name") && label.empty()) throw UsageError("the name is empty");
    if (wrapped && (parsed.Has("--public") || parsed.Has("--password-stdin")))
        throw UsageError(std::string(parsed.Has("--public") ? "--public" : "--password-stdin") +
                         " does not go with --wrapped-by: the blob was made by 'wrap'");
    if (path == "-" && (parsed.Has("--pin-stdin") || parsed.Has("--password-stdin")))
        throw UsageError("with --pin-stdin or --password-stdin the key must come from a file");
    UseBinaryStdio();
    SecretBytes fileBytes = ReadData(path);

    KeyFile file;
    if (wrapped) {
        file.isPrivate = WrappedBlobIsPrivate(fileBytes, path);
        file.blob = std::move(fileBytes);
    } else {
        Passphrase passphrase;
        if (parsed.Has("--password-stdin")) passphrase = Passphrase{true, ReadPassphraseLine()};
        file = ReadKeyFile(fileBytes, path, passphrase, parsed.Has("--public"));
    }
    const bool twoSteps = parsed.Has("--no-finalize");
    if (twoSteps && !file.isPrivate)
        throw UsageError("--no-finalize is for private keys; a public key is on the token at once");

    KeyCommand command(invocation, parsed, KeyCommand::NoKeyYet{});
    ProviderSession& session = command.session();
    NCRYPT_KEY_HANDLE importKey = 0;
    if (wrapped) {
        importKey = session.OpenKey(wrappingKey);
        const size_t modulusSize = PublicKeyOf(session.keyRef()).modulus.size();
        if (file.blob.size() - kClearBytes != modulusSize)
            throw ClientError(
                exit_code::kData,
                "'" + path + "' holds " + std::to_string(file.blob.size() - kClearBytes) +
                    " bytes after its 8 clear ones; a blob wrapped for the " +
                    std::to_string(modulusSize * 8) + "-bit key " + wrappingKey + " holds " +
                    std::to_string(modulusSize) + " (cut short, or wrapped for another key?)");
        // The token unwraps on the session as it is, without a login of its
        // own. The length query of an encryption logs in and touches no data.
        uint8_t probe = 0;
        DWORD length = 0;
        command.Check(session.table().Encrypt(session.provider(), importKey, &probe, 1, nullptr,
                                              nullptr, 0, &length, NCRYPT_PAD_PKCS1_FLAG),
                      "logging in for the wrapping key");
    }
    const DWORD flags = twoSteps ? NCRYPT_DO_NOT_FINALIZE_FLAG : 0;
    CheckImport(command,
                session.ImportKey(importKey, BlobType(file.isPrivate), wideLabel, file.blob, flags),
                label, wrapped);
    if (twoSteps)
        command.Check(session.table().FinalizeKey(session.provider(), session.key(), 0),
                      "finalizing the imported key");

    const RsaPublicKey publicKey = PublicKeyOf(session.keyRef());
    // A public key alone is no key pair, which is all that EnumKeys lists.
    if (!file.isPrivate) {
        if (label.empty())
            std::printf(
                "imported a %zu-bit public key as a session object without a name: it "
                "ended with this command\n",
                publicKey.Bits());
        else
            std::printf(
                "label  %s\nbits   %zu\nimported as a public key object on the token; "
                "'quelmksp keys' lists key pairs only\n",
                label.c_str(), publicKey.Bits());
        return exit_code::kOk;
    }
    std::optional<platform::WideString> name = ListedNameOf(session, publicKey);
    if (!name)
        throw ClientError(exit_code::kProvider,
                          "the key pair was imported, but no key that 'quelmksp keys' lists has "
                          "its public key");
    if (!file.certificate.empty()) StoreCertificate(session, *name, file.certificate);
    std::printf("label  %s\nname   %s\nhex    %s\nbits   %zu\n",
                label.empty() ? "-" : label.c_str(), ReadableKeyName(*name).c_str(),
                HexKeyName(*name).c_str(), publicKey.Bits());
    if (!file.certificate.empty()) {
        std::optional<std::string> subject = CertificateSubject(file.certificate);
        std::printf("cert   %s\n", subject ? subject->c_str() : "(stored)");
    }
    return exit_code::kOk;
}
