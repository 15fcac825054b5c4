#include "settings.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace quelm {
namespace {

const char* env(const char* name) {
    const char* value = std::getenv(name);
    return value && *value ? value : nullptr;
}

bool is_yes(std::string_view value) {
    return value == "1" || value == "yes" || value == "true" || value == "on";
}

std::string_view trim_blanks(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
    return text;
}

}  // namespace

std::filesystem::path default_state_dir() {
    if (const char* xdg = env("XDG_STATE_HOME")) return std::filesystem::path(xdg) / "quelmpkcs11";
    if (const char* home = env("HOME")) {
        return std::filesystem::path(home) / ".local" / "state" / "quelmpkcs11";
    }
    return "/var/lib/quelmpkcs11";
}

unsigned parse_max_tries(const char* text) {
    if (!text) return Settings::kDefaultMaxTries;
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || value < 1) {
        std::fprintf(stderr, "quelmpkcs11: ignoring QUELMPKCS11_MAX_TRIES=\"%s\", using %u\n", text,
                     Settings::kDefaultMaxTries);
        return Settings::kDefaultMaxTries;
    }
    if (value > static_cast<long>(Settings::kLargestMaxTries)) return Settings::kLargestMaxTries;
    return static_cast<unsigned>(value);
}

std::vector<SlotNameRule> parse_slot_names(const std::string& text) {
    std::vector<SlotNameRule> rules;
    std::string_view rest(text);
    while (!rest.empty()) {
        const std::size_t end = rest.find(';');
        const std::string_view entry = rest.substr(0, end);
        rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        const std::size_t equals = entry.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string_view token = trim_blanks(entry.substr(0, equals));
        if (token.empty()) continue;
        rules.push_back({std::string(token), std::string(entry.substr(equals + 1))});
    }
    return rules;
}

Settings Settings::from_environment() {
    Settings settings;
    if (const char* module = env("QUELMPKCS11_MODULE")) settings.backend_path = module;
    const char* state = env("QUELMPKCS11_STATE");
    settings.state_dir = state ? std::filesystem::path(state) : default_state_dir();
    settings.max_tries = parse_max_tries(env("QUELMPKCS11_MAX_TRIES"));
    if (const char* show = env("QUELMPKCS11_SHOW_UNINITIALIZED")) {
        settings.show_uninitialized = is_yes(show);
    }
    if (const char* names = env("QUELMPKCS11_SLOT_NAMES")) {
        settings.slot_names = parse_slot_names(names);
    }
    return settings;
}

}  // namespace quelm
