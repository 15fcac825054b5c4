#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "certificate.h"
#include "client_error.h"
#include "command_line.h"
#include "commands.h"
#include "data_io.h"
#include "diag/status_names.h"
#include "exit_codes.h"
#include "json_text.h"
#include "key_enumeration.h"
#include "key_name_text.h"
#include "platform/wide_string.h"
#include "provider_client.h"
#include "provider_session.h"

namespace {

const CommandSyntax kSyntax{
    "keys",
    "usage: quelmksp keys [--long] [--format text|json] [-o FILE]\n"
    "\n"
    "Lists the keys on the token: each name in a readable form (characters\n"
    "outside printable ASCII and Latin-1 escaped as \\xHH), and beside it the\n"
    "hexadecimal form, which names the key in every other command.\n"
    "\n"
    "  --long  add each key's length in bits, its usage (sign, decrypt) and\n"
    "          the subject of the certificate stored beside it (- for none);\n"
    "          a value that cannot be read shows as ?, and the command then\n"
    "          exits 3 after saying why on stderr\n"
    "  --format FORM  text (default) or json (see the README for the fields)\n"
    "  -o FILE        write to FILE instead of stdout\n",
    {"--long"},
    {"--format", "-o"},
    0,
    0};

// Latin-1 letters take two bytes of UTF-8 but one column.
size_t Columns(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

std::string UsageText(DWORD usage) {
    if (usage == NCRYPT_ALLOW_ALL_USAGES) return "all";
    std::string text;
    auto add = [&](DWORD flag, const char* name) {
        if (!(usage & flag)) return;
        text += text.empty() ? name : std::string(",") + name;
        usage &= ~flag;
    };
    add(NCRYPT_ALLOW_SIGNING_FLAG, "sign");
    add(NCRYPT_ALLOW_DECRYPT_FLAG, "decrypt");
    add(NCRYPT_ALLOW_KEY_AGREEMENT_FLAG, "agree");
    if (usage != 0) {
        char rest[16];
        std::snprintf(rest, sizeof rest, "0x%X", static_cast<unsigned>(usage));
        text += text.empty() ? rest : std::string(",") + rest;
    }
    return text.empty() ? "none" : text;
}

// The --long columns of one key; what cannot be read is "?", and why is
// told on stderr.
class Details {
public:
    Details(const ProviderSession& session, const platform::WideString& name,
            const std::string& shownName)
        : key_(session), shownName_(shownName) {
        SECURITY_STATUS status = key_.Open(name);
        if (status != ERROR_SUCCESS) {
            Complain(status, "opening it");
            return;
        }
        bits = Bits();
        usage = Usage();
        subject = Subject();
    }

    std::string bits = "?";
    std::string usage = "?";
    std::string subject = "?";
    bool failed = false;

private:
    std::string Bits() {
        DWORD value = 0;
        SECURITY_STATUS status = ReadKeyDword(key_.ref(), NCRYPT_LENGTH_PROPERTY, &value);
        if (status == ERROR_SUCCESS) return std::to_string(value);
        return Complain(status, "reading its length");
    }

    std::string Usage() {
        DWORD value = 0;
        SECURITY_STATUS status = ReadKeyDword(key_.ref(), NCRYPT_KEY_USAGE_PROPERTY, &value);
        if (status == ERROR_SUCCESS) return UsageText(value);
        return Complain(status, "reading its usage");
    }

    std::string Subject() {
        SecretBytes der;
        SECURITY_STATUS status = ReadKeyProperty(key_.ref(), NCRYPT_CERTIFICATE_PROPERTY, &der);
        if (status == NTE_NOT_FOUND) return "-";
        if (status != ERROR_SUCCESS) return Complain(status, "reading its certificate");
        if (std::optional<std::string> text = CertificateSubject(der)) return *text;
        std::fprintf(stderr, "quelmksp keys: the certificate of key %s is not X.509\n",
                     shownName_.c_str());
        failed = true;
        return "?";
    }

    std::string Complain(SECURITY_STATUS status, const char* what) {
        std::fprintf(stderr, "quelmksp keys: %s: key %s failed in %s\n", StatusName(status),
                     shownName_.c_str(), what);
        failed = true;
        return "?";
    }

    OpenedKey key_;
    std::string shownName_;
};

using Row = std::vector<std::string>;

// Left-aligned columns two blanks apart; the last one is not padded.
std::string TableText(const std::vector<Row>& rows) {
    std::vector<size_t> widths(rows[0].size(), 0);
    for (const Row& row : rows)
        for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Columns(row[i]));
    std::string text;
    for (const Row& row : rows) {
        for (size_t i = 0; i < row.size(); ++i) {
            text += row[i];
            if (i + 1 < row.size()) text += std::string(widths[i] - Columns(row[i]) + 2, ' ');
        }
        text += "\n";
    }
    return text;
}

// The JSON value of a --long column: "?" (unreadable) and "-" (none) are null.
std::string JsonColumn(const std::string& value, size_t column) {
    if (value == "?" || (column == 4 && value == "-")) return "null";
    if (column == 2) return value;
    if (column == 3) {
        std::string list = "[";
        size_t start = 0;
        while (start <= value.size()) {
            size_t comma = value.find(',', start);
            if (comma == std::string::npos) comma = value.size();
            list += (list.size() > 1 ? ", " : "") + JsonString(value.substr(start, comma - start));
            start = comma + 1;
        }
        return list + "]";
    }
    return JsonString(value);
}

std::string JsonText(const std::vector<Row>& rows) {
    static const char* const kFields[] = {"name", "hex", "bits", "usage", "certificate_subject"};
    std::string text = "{\n  \"keys\": [";
    for (size_t r = 1; r < rows.size(); ++r) {
        text += r > 1 ? ",\n    {" : "\n    {";
        for (size_t i = 0; i < rows[r].size(); ++i)
            text +=
                std::string(i ? ", " : "") + "\"" + kFields[i] + "\": " + JsonColumn(rows[r][i], i);
        text += "}";
    }
    return text + (rows.size() > 1 ? "\n  ]\n}\n" : "]\n}\n");
}

}  // namespace

int RunKeys(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kSyntax.help, stdout);
        return exit_code::kOk;
    }
    const bool longForm = parsed.Has("--long");
    const std::string format = parsed.Value("--format", "text");
    if (format != "text" && format != "json")
        throw UsageError("unknown format '" + format + "': use text or json");
    ProviderClient client(invocation.library, invocation.interactive);
    ProviderSession session(client);
    std::vector<Row> rows;
    rows.push_back(longForm ? Row{"NAME", "HEX", "BITS", "USAGE", "SUBJECT"} : Row{"NAME", "HEX"});
    bool failed = false;
    for (const platform::WideString& name : ListKeyNames(session)) {
        Row row{ReadableKeyName(name), HexKeyName(name)};
        if (longForm) {
            Details details(session, name, row[1]);
            row.insert(row.end(), {details.bits, details.usage, details.subject});
            failed = failed || details.failed;
        }
        rows.push_back(std::move(row));
    }
    if (rows.size() == 1 && format == "text") {
        std::fputs("no keys on the token\n", stderr);
        return exit_code::kOk;
    }
    const std::string text = format == "json" ? JsonText(rows) : TableText(rows);
    WriteOutput(parsed.Value("-o", "-"), reinterpret_cast<const uint8_t*>(text.data()),
                text.size());
    return failed ? exit_code::kProvider : exit_code::kOk;
}
