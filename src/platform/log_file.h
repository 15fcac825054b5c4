// Appending to a shared text file, one short-lived open per write, so that
// several writers (other instances, other processes) interleave line by line.
#pragma once

#include <string_view>

#include "platform/wide_string.h"

namespace platform {

// Opens the file for appending in text mode (CR LF line ends on Windows),
// shared with every other opener, writes the text, flushes and closes.
// Returns false when the file cannot be opened or written.
bool AppendToTextFile(WideView path, std::string_view text);

}  // namespace platform
