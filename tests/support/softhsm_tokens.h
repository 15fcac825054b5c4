// Fresh SoftHSM2 tokens in a test's folder, and the environment that makes
// the middleware and SoftHSM2 use them and nothing else.
#pragma once

#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "temp_dir.h"

class SoftHsmTokens {
public:
    static constexpr const char* kUserPin = "1234";
    static constexpr const char* kSoPin = "12345678";

    // One initialised token per label, in slot order.
    SoftHsmTokens(const TempDir& dir, const std::vector<std::string>& labels) {
        std::string tokens = dir / "tokens";
        std::filesystem::create_directories(tokens);
        std::ofstream(dir / "softhsm2.conf") << "directories.tokendir = " << tokens
                                             << "\nobjectstore.backend = file\nlog.level = ERROR\n";
        setenv("SOFTHSM2_CONF", (dir / "softhsm2.conf").c_str(), 1);
        setenv("QUELMPKCS11_STATE", (dir / "state").c_str(), 1);
        for (const char* name : {"QUELMPKCS11_MODULE", "QUELMPKCS11_MAX_TRIES",
                                 "QUELMPKCS11_SLOT_NAMES", "QUELMPKCS11_SHOW_UNINITIALIZED"})
            unsetenv(name);
        for (const std::string& label : labels) {
            std::string command = "softhsm2-util --init-token --free --label '" + label +
                                  "' --so-pin " + kSoPin + " --pin " + kUserPin + " >/dev/null";
            if (std::system(command.c_str()) != 0)
                throw std::runtime_error("softhsm2-util could not make token " + label);
        }
    }

    // Gives the slots of these tokens other descriptions, as readers have.
    static void NameSlots(const std::string& labelToName) {
        setenv("QUELMPKCS11_SLOT_NAMES", labelToName.c_str(), 1);
    }
};
