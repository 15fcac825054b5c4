#include "platform/debug_output.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/text.h"

namespace platform {
namespace {

bool Enabled() {
    static const bool enabled = [] {
        const char* value = std::getenv("QUELMKSP_DEBUG_OUTPUT");
        return value && std::strcmp(value, "1") == 0;
    }();
    return enabled;
}

}  // namespace

bool DebugOutputEnabled() {
    return Enabled();
}

void DebugOutput(std::string_view text) {
    if (!Enabled()) return;
    std::string line(text);
    line.push_back('\n');
    std::fputs(line.c_str(), stderr);
}

void DebugOutput(WideView text) {
    if (Enabled()) DebugOutput(ToUtf8(text));
}

}  // namespace platform
