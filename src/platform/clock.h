// Local time in the C library's ctime form.
#pragma once

#include <ctime>
#include <string>

namespace platform {

// "Www Mmm dd hh:mm:ss yyyy\n", as ctime() formats it, for the local time
// zone, without ctime's shared static buffer.
std::string CtimeText(std::time_t when);

}  // namespace platform
