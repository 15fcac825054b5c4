// Fresh SoftHSM2 tokens in a test's folder, and the environment that makes
// the middleware and SoftHSM2 use them and nothing else.
#pragma once

#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "temp_dir.h"
#include "test_system.h"

class SoftHsmTokens {
public:
    static constexpr const char* kUserPin = "1234";
    static constexpr const char* kSoPin = "12345678";

    // One initialised token per label, in slot order.
    SoftHsmTokens(const TempDir& dir, const std::vector<std::string>& labels) {
        std::string tokens = dir / "tokens";
        std::filesystem::create_directories(tokens);
        std::ofstream(dir / "softhsm2.conf")
            << "directories.tokendir = " << test_system::UnixPath(tokens)
            << "\nobjectstore.backend = file\nlog.level = ERROR\n";
        // SoftHSM2 and the middleware run on the Unix side: their paths are
        // Unix paths, which under Wine differ from the Windows ones.
        const std::string conf = test_system::UnixPath(dir / "softhsm2.conf");
        test_system::SetVariable("SOFTHSM2_CONF", conf);
        test_system::SetVariable("QUELMPKCS11_STATE", test_system::UnixPath(dir / "state"));
        for (const char* name : {"QUELMPKCS11_MODULE", "QUELMPKCS11_MAX_TRIES",
                                 "QUELMPKCS11_SLOT_NAMES", "QUELMPKCS11_SHOW_UNINITIALIZED"})
            test_system::UnsetVariable(name);
        for (const std::string& label : labels) {
            if (test_system::RunUnixProgram({"softhsm2-util", "--init-token", "--free", "--label",
                                             label, "--so-pin", kSoPin, "--pin", kUserPin},
                                            {{"SOFTHSM2_CONF", conf}}) != 0)
                throw std::runtime_error("softhsm2-util could not make token " + label);
        }
    }

    // Gives the slots of these tokens other descriptions, as readers have.
    static void NameSlots(const std::string& labelToName) {
        test_system::SetVariable("QUELMPKCS11_SLOT_NAMES", labelToName);
    }
};
