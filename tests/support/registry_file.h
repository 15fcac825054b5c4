// Test configuration: a registry file of the provider's settings, pointed to
// by QUELMKSP_REGISTRY for as long as the object lives.
#pragma once

#include <cstdlib>
#include <string>

#include "temp_dir.h"

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
        const char* old = std::getenv("QUELMKSP_REGISTRY");
        if (old) previous_ = old;
        hadPrevious_ = old != nullptr;
        setenv("QUELMKSP_REGISTRY", path_.c_str(), 1);
    }
    ~RegistryFile() {
        if (hadPrevious_)
            setenv("QUELMKSP_REGISTRY", previous_.c_str(), 1);
        else
            unsetenv("QUELMKSP_REGISTRY");
    }

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
    std::string previous_;
    bool hadPrevious_ = false;
};
