#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client_error.h"
#include "command_line.h"
#include "commands.h"
#include "data_io.h"
#include "diag/status_names.h"
#include "exit_codes.h"
#include "json_text.h"
#include "platform/module.h"
#include "platform/smart_card.h"
#include "platform/text.h"
#include "provider/slot_name.h"
#include "token/pkcs11.h"

namespace {

const CommandSyntax kSyntax{
    "readers",
    "usage: quelmksp readers [--format text|json] [-o FILE]\n"
    "\n"
    "Lists the PC/SC readers, whether a card is in each, and which of them\n"
    "carries a token slot of the token module: the slot whose description,\n"
    "as the provider reads it (32 characters, trailing blanks dropped), is\n"
    "the reader's name. Token slots that no reader names are listed after.\n"
    "\n"
    "  --format FORM  text (default) or json (see the README for the fields)\n"
    "  -o FILE        write to FILE instead of stdout\n",
    {},
    {"--format", "-o"},
    0,
    0};

std::string Hex(int32_t code) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<uint32_t>(code));
    return text;
}

// The smart-card context, released on every path.
class Context {
public:
    Context() {
        int32_t rv =
            platform::SCardEstablishContext(platform::kScardScopeUser, nullptr, nullptr, &context_);
        if (rv != platform::kScardSuccess)
            throw ClientError(exit_code::kProvider, "the smart-card service cannot be reached (" +
                                                        Hex(rv) + "); is pcscd running?");
    }
    ~Context() { platform::SCardReleaseContext(context_); }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    platform::SCARDCONTEXT get() const { return context_; }

private:
    platform::SCARDCONTEXT context_ = 0;
};

struct TokenSlot {
    CK_SLOT_ID slot = 0;
    std::string label;
    std::string Text() const { return "slot " + std::to_string(slot) + " (" + label + ")"; }
    std::string Json() const {
        return "{\"slot\": " + std::to_string(slot) + ", \"label\": " + JsonString(label) + "}";
    }
};

struct Reader {
    std::string name;
    std::string card;
    std::optional<TokenSlot> slot;
};

// The token module the provider loads, opened on its own: slot name to
// "slot N (label)".
class TokenSlots {
public:
    TokenSlots() {
        const char* chosen = std::getenv("QUELMKSP_PKCS11_MODULE");
        const std::string file = (chosen && *chosen)
                                     ? std::string(chosen)
                                     : platform::SharedLibraryFileName("quelmpkcs11");
        std::string error;
        module_ = platform::Module::Load(file, &error);
        if (!module_)
            throw ClientError(exit_code::kProvider,
                              "cannot load the token module " + file + ": " + error);
        auto getList = module_->Function<CK_C_GetFunctionList>("C_GetFunctionList");
        CK_FUNCTION_LIST* list = nullptr;
        if (!getList || getList(&list) != CKR_OK || !list)
            throw ClientError(exit_code::kProvider, file + " is not a PKCS#11 module");
        CK_RV rv = list->C_Initialize(nullptr);
        if (rv != CKR_OK && rv != CKR_CRYPTOKI_ALREADY_INITIALIZED)
            throw ClientError(exit_code::kProvider, "the token module does not start");
        functions_ = list;
        CK_ULONG count = 0;
        if (list->C_GetSlotList(CK_TRUE, nullptr, &count) != CKR_OK) return;
        std::vector<CK_SLOT_ID> slots(count);
        if (list->C_GetSlotList(CK_TRUE, slots.data(), &count) != CKR_OK) return;
        slots.resize(count);
        for (CK_SLOT_ID slot : slots) {
            CK_SLOT_INFO info{};
            CK_TOKEN_INFO token{};
            if (list->C_GetSlotInfo(slot, &info) != CKR_OK) continue;
            std::string label = "?";
            if (list->C_GetTokenInfo(slot, &token) == CKR_OK) {
                label.assign(reinterpret_cast<const char*>(token.label), sizeof token.label);
                label.erase(label.find_last_not_of(' ') + 1);
            }
            byName_[platform::ToUtf8(SlotName(info))] = TokenSlot{slot, label};
        }
    }
    ~TokenSlots() {
        if (functions_) functions_->C_Finalize(nullptr);
    }
    TokenSlots(const TokenSlots&) = delete;
    TokenSlots& operator=(const TokenSlots&) = delete;

    // The slot of the reader, which is then no longer left over.
    std::optional<TokenSlot> Take(const std::string& reader) {
        auto found = byName_.find(reader);
        if (found == byName_.end()) return std::nullopt;
        TokenSlot slot = found->second;
        byName_.erase(found);
        return slot;
    }
    const std::map<std::string, TokenSlot>& rest() const { return byName_; }

private:
    std::unique_ptr<platform::Module> module_;
    CK_FUNCTION_LIST* functions_ = nullptr;
    std::map<std::string, TokenSlot> byName_;
};

std::string Text(const std::vector<Reader>& readers, const TokenSlots& slots, size_t width) {
    auto row = [width](const std::string& reader, const std::string& card,
                       const std::string& slot) {
        std::string line = reader;
        line.append(width - std::min(width, reader.size()) + 2, ' ');
        line += card;
        line.append(13 - std::min<size_t>(11, card.size()), ' ');
        return line + slot + "\n";
    };
    std::string text = readers.empty() ? "no PC/SC reader\n" : row("READER", "CARD", "TOKEN SLOT");
    for (const Reader& reader : readers)
        text += row(reader.name, reader.card, reader.slot ? reader.slot->Text() : "-");
    for (const auto& [name, slot] : slots.rest())
        text += "token " + slot.Text() + " has no reader of that name: \"" + name + "\"\n";
    return text;
}

// {"readers": [{"reader", "card", "token": {"slot", "label"} | null}],
//  "unmatched_tokens": [{"slot", "label", "slot_name"}]}
std::string Json(const std::vector<Reader>& readers, const TokenSlots& slots) {
    std::string text = "{\n  \"readers\": [";
    for (size_t i = 0; i < readers.size(); ++i)
        text += std::string(i ? ",\n" : "\n") + "    {\"reader\": " + JsonString(readers[i].name) +
                ", \"card\": " + JsonString(readers[i].card) +
                ", \"token\": " + (readers[i].slot ? readers[i].slot->Json() : "null") + "}";
    text += readers.empty() ? "],\n" : "\n  ],\n";
    text += "  \"unmatched_tokens\": [";
    size_t i = 0;
    for (const auto& [name, slot] : slots.rest()) {
        std::string entry = slot.Json();
        entry.insert(entry.size() - 1, ", \"slot_name\": " + JsonString(name));
        text += std::string(i++ ? ",\n" : "\n") + "    " + entry;
    }
    text += i ? "\n  ]\n}\n" : "]\n}\n";
    return text;
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
    Context context;
    platform::ReaderList list;
    int32_t rv = list.List(context.get());
    if (rv != platform::kScardSuccess && rv != platform::kScardENoReadersAvailable)
        throw ClientError(exit_code::kProvider, "the readers cannot be listed (" + Hex(rv) + ")");

    std::vector<platform::WideString> names;
    list.ForEach([&](platform::WideView name) { names.emplace_back(name); });
    std::vector<platform::SCARD_READERSTATEW> states(names.size());
    for (size_t i = 0; i < names.size(); ++i) states[i].szReader = names[i].c_str();
    const bool stateKnown =
        !states.empty() && platform::SCardGetStatusChangeW(context.get(), 0, states.data(),
                                                           static_cast<uint32_t>(states.size())) ==
                               platform::kScardSuccess;

    TokenSlots slots;
    std::vector<Reader> readers;
    size_t width = 6;
    for (size_t i = 0; i < names.size(); ++i) {
        Reader reader;
        reader.name = platform::ToUtf8(names[i]);
        const uint32_t state = stateKnown ? states[i].dwEventState : 0;
        reader.card = !stateKnown                                  ? "?"
                      : (state & platform::kScardStatePresent)     ? "yes"
                      : (state & platform::kScardStateUnavailable) ? "unavailable"
                                                                   : "no";
        reader.slot = slots.Take(reader.name);
        width = std::max(width, reader.name.size());
        readers.push_back(reader);
    }
    const std::string output =
        format == "json" ? Json(readers, slots) : Text(readers, slots, width);
    WriteOutput(parsed.Value("-o", "-"), reinterpret_cast<const uint8_t*>(output.data()),
                output.size());
    return exit_code::kOk;
}
