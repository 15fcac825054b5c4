#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "client_error.h"
#include "registration.h"

namespace {

// Where the provider reads its configuration; the same rule as its own.
std::string RegistryFilePath() {
    const char* path = std::getenv("QUELMKSP_REGISTRY");
    return (path && *path) ? path : "/etc/velmora/quelmksp.reg";
}

const char kNoCng[] = "Linux has no CNG: the provider reads its configuration from ";

void WriteFile(const std::string& path, std::string_view bytes) {
    std::error_code error;
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    if (!folder.empty()) std::filesystem::create_directories(folder, error);
    if (error)
        throw ClientError(exit_code::kData,
                          "cannot make the folder " + folder.string() + ": " + error.message());
    std::FILE* file = std::fopen(path.c_str(), "wbx");
    if (!file)
        throw ClientError(exit_code::kData, "cannot write " + path + ": " + std::strerror(errno));
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    if (std::fclose(file) != 0 || !written) {
        const std::string reason = std::strerror(errno);
        std::remove(path.c_str());
        throw ClientError(exit_code::kData, "cannot write " + path + ": " + reason);
    }
}

}  // namespace

// The file is the administrator's once it exists, so a second register
// leaves it as it is.
RegistrationResult RegisterProvider(const DefaultConfiguration& configuration) {
    const std::string path = RegistryFilePath();
    RegistrationResult result;
    result.steps.push_back(kNoCng + path);
    if (std::filesystem::exists(path)) {
        result.steps.push_back("kept    " + path + " (already there)");
        return result;
    }
    WriteFile(path, configuration.file);
    result.steps.push_back("written " + path);
    return result;
}

RegistrationResult UnregisterProvider(const DefaultConfiguration&) {
    const std::string path = RegistryFilePath();
    RegistrationResult result;
    result.steps.push_back(kNoCng + path);
    if (std::remove(path.c_str()) == 0) {
        result.steps.push_back("removed " + path);
    } else if (errno == ENOENT) {
        result.steps.push_back("absent  " + path);
    } else {
        throw ClientError(exit_code::kData, "cannot remove " + path + ": " + std::strerror(errno));
    }
    return result;
}
