#include "platform/debug_output.h"

#include <windows.h>

#include <string>

namespace platform {

bool DebugOutputEnabled() {
    return true;
}

void DebugOutput(std::string_view text) {
    OutputDebugStringA(std::string(text).c_str());
}

void DebugOutput(WideView text) {
    OutputDebugStringW(WideString(text).c_str());
}

}  // namespace platform
