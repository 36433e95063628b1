#pragma once

#include <cstdlib>
#include <ctime>
#include <string>

#include "agent/retention/Policy.h"

namespace agent::retention::test_kit {

/// The local time zone while it lives.
class CZone {
public:
    explicit CZone(const std::string& name) {
        ::setenv("TZ", name.c_str(), 1);  // NOLINT: the tests have one thread
        ::tzset();
    }
    CZone(const CZone&) = delete;
    CZone& operator=(const CZone&) = delete;
    ~CZone() {
        ::unsetenv("TZ");  // NOLINT
        ::tzset();
    }
};

/// A local time.
inline STime At(int year, int month, int day, int hour = 12, int minute = 0) {
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = minute;
    parts.tm_isdst = -1;
    return {std::mktime(&parts), 0};
}

}  // namespace agent::retention::test_kit
