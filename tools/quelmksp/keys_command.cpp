#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "command_line.h"
#include "commands.h"
#include "exit_codes.h"
#include "key_name_text.h"
#include "platform/wide_string.h"
#include "provider_client.h"
#include "provider_session.h"
#include "status_messages.h"

namespace {

const CommandSyntax kSyntax{
    "keys",
    "usage: quelmksp keys\n"
    "\n"
    "Lists the keys on the token: each name in a readable form (characters\n"
    "outside printable ASCII and Latin-1 escaped as \\xHH), and beside it the\n"
    "hexadecimal form, which names the key in every other command.\n",
    {},
    {},
    0,
    0};

// The enumeration's records and state, each released through FreeBuffer
// whatever happens between two steps.
class Enumeration {
public:
    explicit Enumeration(const ProviderSession& session) : session_(session) {}
    ~Enumeration() {
        if (state_) session_.table().FreeBuffer(state_);
    }
    Enumeration(const Enumeration&) = delete;
    Enumeration& operator=(const Enumeration&) = delete;

    // The next name, or false at the end.
    bool Next(platform::WideString* name) {
        NCryptKeyName* record = nullptr;
        SECURITY_STATUS status =
            session_.table().EnumKeys(session_.provider(), nullptr, &record, &state_, 0);
        if (status == NTE_NO_MORE_ITEMS) return false;
        if (status != ERROR_SUCCESS) ThrowStatus(status, "the keys could not be listed");
        if (record) {
            *name = platform::ViewOf(record->pszName);
            session_.table().FreeBuffer(record);
        }
        return true;
    }

private:
    const ProviderSession& session_;
    PVOID state_ = nullptr;
};

// Latin-1 letters take two bytes of UTF-8 but one column.
size_t Columns(const std::string& text) {
    return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0) != 0x80;
    }));
}

void PrintRow(const std::string& name, size_t width, const std::string& hex) {
    std::printf("%s%s  %s\n", name.c_str(), std::string(width - Columns(name), ' ').c_str(),
                hex.c_str());
}

}  // namespace

int RunKeys(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kSyntax.help, stdout);
        return exit_code::kOk;
    }
    ProviderClient client(invocation.library, invocation.interactive);
    ProviderSession session(client);
    std::vector<std::pair<std::string, std::string>> rows;
    {
        Enumeration keys(session);
        platform::WideString name;
        while (keys.Next(&name)) rows.emplace_back(ReadableKeyName(name), HexKeyName(name));
    }
    if (rows.empty()) {
        std::fputs("no keys on the token\n", stderr);
        return exit_code::kOk;
    }
    size_t width = 4;
    for (const auto& row : rows) width = std::max(width, Columns(row.first));
    PrintRow("NAME", width, "HEX");
    for (const auto& row : rows) PrintRow(row.first, width, row.second);
    return exit_code::kOk;
}
