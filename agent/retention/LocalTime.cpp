#include "agent/retention/LocalTime.h"

#include <ctime>
#include <iomanip>
#include <sstream>

namespace agent::retention {

std::string FormatLocalTime(const STime& time, const char* format) {
    const std::time_t seconds = time.seconds;
    std::tm parts{};
    ::localtime_r(&seconds, &parts);
    std::ostringstream text;
    text << std::put_time(&parts, format);
    return text.str();
}

std::string ToLocalText(const STime& time) { return FormatLocalTime(time, "%Y-%m-%d %H:%M:%S"); }

}  // namespace agent::retention
