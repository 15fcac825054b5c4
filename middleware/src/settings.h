#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quelm {

struct SlotNameRule {
    std::string token;  // a token serial or label, compared without its blank padding
    std::string description;
};

// The middleware's configuration, read from the environment once per C_Initialize so that a
// running session never sees it change under it.
struct Settings {
    static constexpr const char* kDefaultModule = "/usr/lib/softhsm/libsofthsm2.so";
    static constexpr unsigned kDefaultMaxTries = 3;
    // Tries-left answers must stay within 1..14 so that they never read as a CKR_ value.
    static constexpr unsigned kLargestMaxTries = 15;

    std::string backend_path = kDefaultModule;
    std::filesystem::path state_dir;
    unsigned max_tries = kDefaultMaxTries;
    bool show_uninitialized = false;
    std::vector<SlotNameRule> slot_names;

    static Settings from_environment();
};

std::filesystem::path default_state_dir();
unsigned parse_max_tries(const char* text);
std::vector<SlotNameRule> parse_slot_names(const std::string& text);

}  // namespace quelm
