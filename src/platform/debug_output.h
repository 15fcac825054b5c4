// The debugger output channel: OutputDebugString on Windows; on Linux stderr,
// but only when QUELMKSP_DEBUG_OUTPUT=1, so that hosts see nothing by default.
#pragma once

#include <string_view>

#include "platform/wide_string.h"

namespace platform {

// Whether the debugger output takes anything at all; a line that goes
// nowhere else need not be formatted.
bool DebugOutputEnabled();

void DebugOutput(std::string_view text);
void DebugOutput(WideView text);

}  // namespace platform
