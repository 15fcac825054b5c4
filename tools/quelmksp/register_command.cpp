#include <cstdio>
#include <stdexcept>
#include <string>
#include <string_view>

#include "command_line.h"
#include "commands.h"
#include "exit_codes.h"
#include "registration.h"

// Generated at build time from config/quelmksp.reg.
extern const char kDefaultRegFile[];
extern const size_t kDefaultRegFileSize;

namespace {

const DefaultConfiguration& TheDefaultConfiguration() {
    static const DefaultConfiguration configuration = [] {
        std::string_view file(kDefaultRegFile, kDefaultRegFileSize);
        return DefaultConfiguration{file, ConfigurationValues(file)};
    }();
    return configuration;
}

const CommandSyntax kRegisterSyntax{
    "register",
    "usage: quelmksp register [--allow-stubbed-cng]\n"
    "\n"
    "Makes the provider known to the system. On Windows: registers\n"
    "\"Velmora KSP v4.5\" with CNG (BCryptRegisterProvider: user mode, image\n"
    "quelmksp.dll, the key storage interface and the aliases of the default\n"
    "configuration; then BCryptAddContextFunctionProvider in CRYPT_LOCAL), and\n"
    "writes the default configuration values into HKEY_LOCAL_MACHINE. A value\n"
    "that is already set is kept. Needs an administrator. On Linux: writes the\n"
    "default configuration file where the provider reads it (QUELMKSP_REGISTRY,\n"
    "or /etc/velmora/quelmksp.reg) unless a file is there already.\n"
    "\n"
    "Where CNG's registration functions are stubs (Wine), the configuration\n"
    "values are written all the same, the command says so and exits 13.\n"
    "\n"
    "  --allow-stubbed-cng  exit 0 instead of 13 in that case (the installer\n"
    "                       uses it, so that it installs under Wine)\n",
    {"--allow-stubbed-cng"},
    {},
    0,
    0};

const CommandSyntax kUnregisterSyntax{
    "unregister",
    "usage: quelmksp unregister [--allow-stubbed-cng]\n"
    "\n"
    "Undoes register. On Windows: removes the provider from CNG's key storage\n"
    "function (BCryptRemoveContextFunctionProvider) and from CNG\n"
    "(BCryptUnregisterProvider), then removes the keys of the default\n"
    "configuration whole, with every value in them, and the vendor's folder\n"
    "under Software when nothing else is left in it. Needs an administrator.\n"
    "On Linux: removes the configuration file.\n"
    "\n"
    "Where CNG's registration functions are stubs (Wine), the configuration\n"
    "is removed all the same, the command says so and exits 13.\n"
    "\n"
    "  --allow-stubbed-cng  exit 0 instead of 13 in that case\n",
    {"--allow-stubbed-cng"},
    {},
    0,
    0};

int Run(const CommandSyntax& syntax, const Invocation& invocation,
        RegistrationResult (*step)(const DefaultConfiguration&), const char* done) {
    ParsedCommand parsed = ParseCommand(syntax, invocation.args);
    if (parsed.help) {
        std::fputs(syntax.help, stdout);
        return exit_code::kOk;
    }
    const DefaultConfiguration* configuration = nullptr;
    try {
        configuration = &TheDefaultConfiguration();
    } catch (const std::runtime_error& error) {
        throw std::runtime_error(std::string("the built-in default configuration is broken: ") +
                                 error.what());
    }
    RegistrationResult result = step(*configuration);
    for (const std::string& line : result.steps) std::printf("%s\n", line.c_str());
    std::fflush(stdout);
    if (result.cngUnavailable.empty()) return exit_code::kOk;
    std::fprintf(stderr, "quelmksp %s: %s; %s\n", syntax.name, result.cngUnavailable.c_str(), done);
    return parsed.Has("--allow-stubbed-cng") ? exit_code::kOk : exit_code::kRegistrationStubbed;
}

}  // namespace

int RunRegister(const Invocation& invocation) {
    return Run(kRegisterSyntax, invocation, RegisterProvider,
               "the configuration values are in place");
}

int RunUnregister(const Invocation& invocation) {
    return Run(kUnregisterSyntax, invocation, UnregisterProvider, "no configuration value is left");
}
