// quelmksp: the command-line client of the Velmora key storage provider.
// It loads the provider as the key storage router does and drives it
// through its function table.
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "diag/status_names.h"
#include "provider_client.h"

namespace {

// Exit codes, documented in the README.
constexpr int kExitOk = 0;
constexpr int kExitUsage = 2;
constexpr int kExitProvider = 3;

const char kUsage[] =
    "usage: quelmksp [--provider LIBRARY] COMMAND\n"
    "\n"
    "Commands:\n"
    "  info    load the provider, show its function table, and open and free\n"
    "          a provider on the token\n"
    "\n"
    "Options:\n"
    "  --provider LIBRARY   the provider library to load (default: the one\n"
    "                       beside this program)\n";

int Info(const ProviderClient& client) {
    static const char* const kOperations[] = {"OpenProvider",
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
    if (present != std::size(kOperations)) return kExitProvider;

    NCRYPT_PROV_HANDLE provider = 0;
    SECURITY_STATUS status =
        table.OpenProvider(&provider, QKSP_TEXT("Velmora KSP v4.5"), NCRYPT_SILENT_FLAG);
    std::printf("open provider    : %s\n", StatusName(status));
    if (status != 0) return kExitProvider;
    status = table.FreeProvider(provider);
    std::printf("free provider    : %s\n", StatusName(status));
    return status == 0 ? kExitOk : kExitProvider;
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    std::string library = platform::OwnFolder() + ProviderClient::kDefaultLibrary;
    if (args.size() >= 2 && args[0] == "--provider") {
        library = args[1];
        args.erase(args.begin(), args.begin() + 2);
    }
    if (args.empty() || args[0] == "--help" || args[0] == "-h") {
        std::fputs(kUsage, args.empty() ? stderr : stdout);
        return args.empty() ? kExitUsage : kExitOk;
    }
    try {
        if (args[0] == "info") return Info(ProviderClient(library));
        std::fprintf(stderr, "quelmksp: unknown command '%s'\n\n%s", args[0].c_str(), kUsage);
        return kExitUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "quelmksp: %s\n", error.what());
        return kExitProvider;
    }
}
