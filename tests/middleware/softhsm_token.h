#pragma once

#include <filesystem>
#include <string>

// A fresh SoftHSM2 token store in a temporary directory, with the environment that makes the
// middleware and the backend use it. Removed again on destruction.
class SoftHsmToken {
public:
    static constexpr const char* kUserPin = "1234";
    static constexpr const char* kSoPin = "12345678";
    static constexpr const char* kLabel = "quelm test";

    SoftHsmToken();
    ~SoftHsmToken();
    SoftHsmToken(const SoftHsmToken&) = delete;
    SoftHsmToken& operator=(const SoftHsmToken&) = delete;

    const std::filesystem::path& dir() const { return dir_; }
    std::filesystem::path state_dir() const { return dir_ / "state"; }

private:
    std::filesystem::path dir_;
};

// Runs a shell command and returns its standard output; `status` receives its exit status.
std::string run_command(const std::string& command, int* status = nullptr);
