// Test configuration: a registry file of the provider's settings, in force
// for as long as the object lives. On Linux QUELMKSP_REGISTRY points to it;
// on Windows it is imported into the registry.
#pragma once

#include <string>

#include "temp_dir.h"
#include "test_system.h"

class RegistryFile {
public:
    static constexpr const char* kSdkKey =
        "[HKEY_LOCAL_MACHINE\\Software\\Velmora Ltd.\\QUELM SDK]\n";
    static constexpr const char* kProviderKey =
        "[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\Cryptography\\Providers\\"
        "Velmora KSP v4.5]\n";

    // body: the lines after the header.
    RegistryFile(const TempDir& dir, const std::string& body) : path_(dir / "quelmksp.reg") {
        WriteFile(path_, "Windows Registry Editor Version 5.00\n\n" + body);
        test_system::UseRegistryFile(path_);
    }
    ~RegistryFile() { test_system::ForgetRegistryFile(); }
    RegistryFile(const RegistryFile&) = delete;
    RegistryFile& operator=(const RegistryFile&) = delete;

    // Settings that switch logging on into logPath.
    static std::string LoggingTo(const std::string& logPath) {
        std::string escaped;
        for (char c : logPath) {
            if (c == '\\' || c == '"') escaped.push_back('\\');
            escaped.push_back(c);
        }
        return std::string(kSdkKey) + "\"KSPLOG\"=\"1\"\n\"KSPDIR\"=\"" + escaped + "\"\n";
    }

    const std::string& path() const { return path_; }

private:
    std::string path_;
};
