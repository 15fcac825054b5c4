#include <cstdio>
#include <iterator>

#include "command_line.h"
#include "commands.h"
#include "diag/status_names.h"
#include "exit_codes.h"
#include "provider_client.h"

namespace {

const CommandSyntax kSyntax{"info",
                            "usage: quelmksp info\n"
                            "\n"
                            "Loads the provider, shows its function table, and opens and frees\n"
                            "a provider on the token.\n",
                            {},
                            {},
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

}  // namespace

int RunInfo(const Invocation& invocation) {
    ParsedCommand parsed = ParseCommand(kSyntax, invocation.args);
    if (parsed.help) {
        std::fputs(kSyntax.help, stdout);
        return exit_code::kOk;
    }
    ProviderClient client(invocation.library, invocation.interactive);
    const NCRYPT_KEY_STORAGE_FUNCTION_TABLE& table = client.table();
    std::printf("provider library : %s\n", client.libraryPath().c_str());
    std::printf("interface version: %u.%u\n", table.Version.MajorVersion,
                table.Version.MinorVersion);
    auto* const* entries = reinterpret_cast<void* const*>(&table.OpenProvider);
    size_t present = 0;
    for (size_t i = 0; i < std::size(kOperations); ++i) present += entries[i] != nullptr;
    std::printf("operations       : %zu of %zu present\n", present, std::size(kOperations));
    for (size_t i = 0; i < std::size(kOperations); ++i)
        std::printf("  %2zu %-20s %s\n", i + 1, kOperations[i], entries[i] ? "yes" : "MISSING");
    if (present != std::size(kOperations)) return exit_code::kProvider;

    NCRYPT_PROV_HANDLE provider = 0;
    SECURITY_STATUS status =
        table.OpenProvider(&provider, QKSP_TEXT("Velmora KSP v4.5"), client.openFlags());
    std::printf("open provider    : %s\n", StatusName(status));
    if (status != 0) return exit_code::kProvider;
    status = table.FreeProvider(provider);
    std::printf("free provider    : %s\n", StatusName(status));
    return status == 0 ? exit_code::kOk : exit_code::kProvider;
}
