#pragma once

#include <ctime>
#include <string>

namespace platform {

// Formats a broken-down time exactly as ctime() does.
std::string FormatCtime(const std::tm& time);

}  // namespace platform
