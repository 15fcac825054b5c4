#include "softhsm_token.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>

SoftHsmToken::SoftHsmToken() {
    std::string pattern = (std::filesystem::temp_directory_path() / "quelmpkcs11-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    dir_ = pattern;
    std::filesystem::create_directory(dir_ / "tokens");
    std::ofstream(dir_ / "softhsm2.conf") << "directories.tokendir = " << (dir_ / "tokens").string()
                                          << "\nobjectstore.backend = file\nlog.level = ERROR\n";
    setenv("SOFTHSM2_CONF", (dir_ / "softhsm2.conf").c_str(), 1);
    setenv("QUELMPKCS11_STATE", state_dir().c_str(), 1);
    for (const char* name : {"QUELMPKCS11_MODULE", "QUELMPKCS11_MAX_TRIES",
                             "QUELMPKCS11_SLOT_NAMES", "QUELMPKCS11_SHOW_UNINITIALIZED"}) {
        unsetenv(name);
    }
    int status = 0;
    run_command(std::string("softhsm2-util --init-token --free --label '") + kLabel +
                    "' --so-pin " + kSoPin + " --pin " + kUserPin + " 2>&1",
                &status);
    if (status != 0) throw std::runtime_error("softhsm2-util --init-token failed");
}

SoftHsmToken::~SoftHsmToken() {
    std::error_code ignored;
    std::filesystem::remove_all(dir_, ignored);
}

std::string run_command(const std::string& command, int* status) {
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) throw std::runtime_error("popen failed");
    std::string output;
    char buffer[512];
    std::size_t read = 0;
    while ((read = fread(buffer, 1, sizeof buffer, pipe)) > 0) output.append(buffer, read);
    const int result = pclose(pipe);
    if (status) *status = WIFEXITED(result) ? WEXITSTATUS(result) : -1;
    return output;
}
