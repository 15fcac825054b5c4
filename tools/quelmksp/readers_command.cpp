// readers: the token module's slots as readers, with the token in each:
// what a user checks first when the provider finds no token.
#include <cstdio>
#include <memory>
#include <string>

#include "client_error.h"
#include "command_line.h"
#include "commands.h"
#include "data_io.h"
#include "exit_codes.h"
#include "json_text.h"
#include "status_messages.h"
#include "token_module.h"

namespace {

const CommandSyntax kSyntax{
    "readers",
    "usage: quelmksp readers [--format text|json] [-o FILE]\n"
    "\n"
    "Lists the readers (the slots of the provider's token module) and the\n"
    "token in each: its label, serial number and PIN state from the token's\n"
    "flags. The provider uses the first token. Reads the module directly;\n"
    "nothing on the token is changed and no PIN is asked for.\n"
    "\n"
    "  --format FORM  text (default) or json (see the README for the fields)\n"
    "  -o FILE        write to FILE instead of stdout\n",
    {},
    {"--format", "-o"},
    0,
    0};

std::string Text(const std::vector<ReaderFacts>& readers) {
    std::string text;
    for (const ReaderFacts& reader : readers) {
        text += "slot " + std::to_string(reader.slot) + "  " + reader.reader + "\n";
        if (!reader.tokenPresent) {
            text += "  no token\n";
            continue;
        }
        text += "  label      " + reader.token.label + "\n  serial     " + reader.token.serial +
                "\n  PIN state  " + PinState(reader.token) + "\n";
    }
    return text.empty() ? "no readers\n" : text;
}

std::string Json(const std::vector<ReaderFacts>& readers) {
    std::string text = "{\n  \"readers\": [";
    for (size_t i = 0; i < readers.size(); ++i) {
        const ReaderFacts& reader = readers[i];
        text += std::string(i ? ",\n" : "\n") + "    {\"slot\": " + std::to_string(reader.slot) +
                ", \"reader\": " + JsonString(reader.reader) + ", \"token\": ";
        if (!reader.tokenPresent) {
            text += "null}";
            continue;
        }
        text += "{\"label\": " + JsonString(reader.token.label) +
                ", \"serial\": " + JsonString(reader.token.serial) +
                ", \"manufacturer\": " + JsonString(reader.token.manufacturer) +
                ", \"model\": " + JsonString(reader.token.model) +
                ", \"pin_state\": " + JsonString(PinState(reader.token)) + "}}";
    }
    return text + (readers.empty() ? "]\n}\n" : "\n  ]\n}\n");
}

}  // namespace

int RunReaders(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kSyntax.help, stdout);
        return exit_code::kOk;
    }
    const std::string format = parsed.Value("--format", "text");
    if (format != "text" && format != "json")
        throw UsageError("unknown format '" + format + "': use text or json");
    std::string why;
    std::unique_ptr<TokenModule> module = TokenModule::Open(FolderOf(invocation.library), &why);
    if (!module) throw ClientError(exit_code::kProvider, why);
    const std::vector<ReaderFacts> readers = module->Readers();
    const std::string text = format == "json" ? Json(readers) : Text(readers);
    WriteOutput(parsed.Value("-o", "-"), reinterpret_cast<const uint8_t*>(text.data()),
                text.size());
    return exit_code::kOk;
}
