#include "platform/ctime_format.h"

#include <cstdio>

namespace platform {

std::string FormatCtime(const std::tm& time) {
    static constexpr const char kDays[7][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char kMonths[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char text[64];
    std::snprintf(text, sizeof text, "%.3s %.3s%3d %.2d:%.2d:%.2d %d\n",
                  kDays[(time.tm_wday % 7 + 7) % 7], kMonths[(time.tm_mon % 12 + 12) % 12],
                  time.tm_mday, time.tm_hour, time.tm_min, time.tm_sec, 1900 + time.tm_year);
    return text;
}

}  // namespace platform
