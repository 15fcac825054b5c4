#include "platform/clock.h"

#include <time.h>

#include "platform/ctime_format.h"

namespace platform {

std::string CtimeText(std::time_t when) {
    std::tm local{};
    localtime_s(&local, &when);
    return FormatCtime(local);
}

}  // namespace platform
