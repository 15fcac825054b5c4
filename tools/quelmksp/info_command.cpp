// info: the provider (its file, interface version and properties), the
// token it works on (reader, label, serial, PIN state from the token's
// flags) and the number of keys; --table shows the function table instead.
#include <cstdio>
#include <iterator>
#include <memory>
#include <string>

#include "client_error.h"
#include "command_line.h"
#include "commands.h"
#include "data_io.h"
#include "diag/status_names.h"
#include "exit_codes.h"
#include "json_text.h"
#include "key_enumeration.h"
#include "provider_client.h"
#include "provider_properties.h"
#include "provider_session.h"
#include "status_messages.h"
#include "token_module.h"

namespace {

const CommandSyntax kSyntax{
    "info",
    "usage: quelmksp info [--table] [--format text|json] [-o FILE]\n"
    "\n"
    "Shows the provider (its library, interface version and properties), the\n"
    "token it works on (the reader, the token's label, serial number, maker\n"
    "and model, and the PIN state from the token's flags: ok, retries low,\n"
    "final try, locked or must be changed) and the number of keys on it.\n"
    "\n"
    "  --table        show the provider's function table instead: each\n"
    "                 operation, whether it is there, and which of them only\n"
    "                 answer NTE_NOT_SUPPORTED (tried on an opened provider)\n"
    "  --format FORM  text (default) or json (see the README for the fields)\n"
    "  -o FILE        write to FILE instead of stdout\n",
    {"--table"},
    {"--format", "-o"},
    0,
    0};

const char* const kOperations[] = {"OpenProvider",
                                   "OpenKey",
                                   "CreatePersistedKey",
                                   "GetProviderProperty",
                                   "GetKeyProperty",
                                   "SetProviderProperty",
                                   "SetKeyProperty",
                                   "FinalizeKey",
                                   "DeleteKey",
                                   "FreeProvider",
                                   "FreeKey",
                                   "FreeBuffer",
                                   "Encrypt",
                                   "Decrypt",
                                   "IsAlgSupported",
                                   "EnumAlgorithms",
                                   "EnumKeys",
                                   "ImportKey",
                                   "ExportKey",
                                   "SignHash",
                                   "VerifySignature",
                                   "PromptUser",
                                   "NotifyChangeKey",
                                   "SecretAgreement",
                                   "DeriveKey",
                                   "FreeSecret"};
constexpr size_t kOperationCount = std::size(kOperations);
constexpr size_t kFirstOptional = 21;  // PromptUser: the rest may answer "not supported".

std::string Padded(const std::string& text, size_t width) {
    return text.size() < width ? text + std::string(width - text.size(), ' ') : text + " ";
}

// The operations from PromptUser on, called with nothing to work on: an
// operation that is not offered answers NTE_NOT_SUPPORTED before anything
// else.
bool AnswersNotSupported(const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table,
                         NCRYPT_PROV_HANDLE provider, size_t index) {
    SECURITY_STATUS status = ERROR_SUCCESS;
    switch (index) {
        case 21:
            status = table.PromptUser(provider, 0, nullptr, 0);
            break;
        case 22:
            status = table.NotifyChangeKey(provider, nullptr, 0);
            break;
        case 23:
            status = table.SecretAgreement(provider, 0, 0, nullptr, 0);
            break;
        case 24:
            status = table.DeriveKey(provider, 0, nullptr, nullptr, nullptr, 0, nullptr, 0);
            break;
        case 25:
            status = table.FreeSecret(provider, 0);
            break;
        default:
            return false;
    }
    return status == NTE_NOT_SUPPORTED;
}

int ShowTable(const ProviderClient& client, bool json, std::string* output) {
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table = client.table();
    auto* const* entries = reinterpret_cast<void* const*>(&table.OpenProvider);
    size_t present = 0;
    for (size_t i = 0; i < kOperationCount; ++i) present += entries[i] != nullptr;
    std::unique_ptr<ProviderSession> session;
    if (present == kOperationCount) session = std::make_unique<ProviderSession>(client);
    std::string text =
        json
            ? "{\n  \"library\": " + JsonString(client.libraryPath()) +
                  ",\n  \"interface_version\": \"" + std::to_string(table.Version.MajorVersion) +
                  "." + std::to_string(table.Version.MinorVersion) + "\",\n  \"operations\": [\n"
            : "provider library   " + client.libraryPath() + "\ninterface version  " +
                  std::to_string(table.Version.MajorVersion) + "." +
                  std::to_string(table.Version.MinorVersion) + "\noperations         " +
                  std::to_string(present) + " of " + std::to_string(kOperationCount) + " present\n";
    for (size_t i = 0; i < kOperationCount; ++i) {
        const bool there = entries[i] != nullptr;
        const bool unsupported = there && session && i >= kFirstOptional &&
                                 AnswersNotSupported(table, session->provider(), i);
        if (json) {
            text += std::string("    {\"index\": ") + std::to_string(i + 1) +
                    ", \"name\": " + JsonString(kOperations[i]) +
                    ", \"present\": " + (there ? "true" : "false") +
                    ", \"supported\": " + (there && !unsupported ? "true" : "false") + "}" +
                    (i + 1 < kOperationCount ? ",\n" : "\n");
        } else {
            char number[8];
            std::snprintf(number, sizeof number, "  %2zu ", i + 1);
            text += number + Padded(kOperations[i], 20) +
                    (!there        ? "MISSING"
                     : unsupported ? "answers NTE_NOT_SUPPORTED"
                                   : "yes") +
                    "\n";
        }
    }
    if (json) text += "  ]\n}\n";
    *output = text;
    return present == kOperationCount ? exit_code::kOk : exit_code::kProvider;
}

struct Line {
    std::string label;
    std::string text;
    std::string json;
};

std::string TextSection(const char* title, const std::vector<Line>& lines) {
    std::string text = std::string(title) + "\n";
    for (const Line& line : lines) text += "  " + Padded(line.label, 24) + line.text + "\n";
    return text;
}

std::string JsonObject(const std::vector<Line>& lines, const std::string& indent) {
    std::string text = "{\n";
    for (size_t i = 0; i < lines.size(); ++i)
        text += indent + "  " + JsonString(lines[i].label) + ": " + lines[i].json +
                (i + 1 < lines.size() ? ",\n" : "\n");
    return text + indent + "}";
}

Line TextLine(const std::string& label, const std::string& value) {
    return Line{label, value, JsonString(value)};
}

}  // namespace

int RunInfo(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kSyntax.help, stdout);
        return exit_code::kOk;
    }
    const std::string format = parsed.Value("--format", "text");
    if (format != "text" && format != "json")
        throw UsageError("unknown format '" + format + "': use text or json");
    const bool json = format == "json";
    ProviderClient client(invocation.library, invocation.interactive);
    std::string output;
    if (parsed.Has("--table")) {
        const int code = ShowTable(client, json, &output);
        WriteOutput(parsed.Value("-o", "-"), reinterpret_cast<const uint8_t*>(output.data()),
                    output.size());
        return code;
    }

    ProviderSession session(client);
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table = client.table();
    const std::string version = std::to_string(table.Version.MajorVersion) + "." +
                                std::to_string(table.Version.MinorVersion);
    std::vector<Line> provider{TextLine("library", client.libraryPath()),
                               TextLine("interface version", version)};
    std::vector<Line> properties;
    for (const ProviderProperty& property : ReadProviderProperties(table, session.provider()))
        properties.push_back(Line{property.name, property.text, property.json});

    std::string why;
    std::unique_ptr<TokenModule> module = TokenModule::Open(FolderOf(client.libraryPath()), &why);
    ReaderFacts reader;
    const bool haveToken = module && module->FirstToken(&reader);
    std::vector<Line> token;
    if (haveToken)
        token = {TextLine("reader", reader.reader),
                 TextLine("label", reader.token.label),
                 TextLine("serial", reader.token.serial),
                 TextLine("manufacturer", reader.token.manufacturer),
                 TextLine("model", reader.token.model),
                 TextLine("PIN state", PinState(reader.token))};
    const size_t keys = ListKeyNames(session).size();

    if (json) {
        output = "{\n  \"provider\": {\n";
        for (const Line& line : provider)
            output +=
                "    " +
                JsonString(line.label == "interface version" ? "interface_version" : line.label) +
                ": " + line.json + ",\n";
        output += "    \"properties\": " + JsonObject(properties, "    ") + "\n  },\n";
        std::vector<Line> tokenJson;
        for (const Line& line : token)
            tokenJson.push_back(
                Line{line.label == "PIN state" ? "pin_state" : line.label, line.text, line.json});
        output += "  \"token\": " + (haveToken ? JsonObject(tokenJson, "  ") : "null") + ",\n";
        output += "  \"keys\": " + std::to_string(keys) + "\n}\n";
    } else {
        std::vector<Line> all = provider;
        all.insert(all.end(), properties.begin(), properties.end());
        output = TextSection("provider", all);
        token.push_back(TextLine("keys", std::to_string(keys)));
        if (!haveToken)
            token.insert(token.begin(),
                         TextLine("token", "? (" + (why.empty() ? "none" : why) + ")"));
        output += TextSection("token", token);
    }
    WriteOutput(parsed.Value("-o", "-"), reinterpret_cast<const uint8_t*>(output.data()),
                output.size());
    return exit_code::kOk;
}
