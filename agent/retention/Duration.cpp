#include <ctime>

#include "agent/retention/Policy.h"
#include "common/exc.h"

namespace agent::retention {

namespace {

constexpr int largestCount = 100000;  // of the smallest unit that is 11 years

[[noreturn]] void Refuse(const std::string& text) {
    throw exc::CRuntimeExc("'%1' is no duration: numbers with the units y, m, w, d and h, such as 1y6m, 2w or 36h",
                           text);
}

/// Reads the digits at `at`, which it moves behind them.
int ReadNumber(const std::string& text, std::size_t& at) {
    const std::size_t begin = at;
    int number = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        number = number * 10 + (text[at] - '0');
        if (number > largestCount) {
            Refuse(text);
        }
    }
    if (at == begin || at == text.size()) {
        Refuse(text);
    }
    return number;
}

void AddUnit(std::string& text, int count, char unit) {
    if (count != 0) {
        text += std::to_string(count) + unit;
    }
}

}  // namespace

SDuration SDuration::FromText(const std::string& text) {
    static const std::string units = "ymwdh";
    SDuration duration;
    std::string seen;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const int number = ReadNumber(text, at);
        const char unit = text[at];
        if (units.find(unit) == std::string::npos || seen.find(unit) != std::string::npos) {
            Refuse(text);
        }
        seen += unit;
        duration.years += unit == 'y' ? number : 0;
        duration.months += unit == 'm' ? number : 0;
        duration.days += unit == 'w' ? 7 * number : unit == 'd' ? number : 0;
        duration.hours += unit == 'h' ? number : 0;
    }
    if (duration == SDuration{}) {
        Refuse(text);
    }
    return duration;
}

std::string SDuration::ToText() const {
    std::string text;
    AddUnit(text, years, 'y');
    AddUnit(text, months, 'm');
    AddUnit(text, days, 'd');
    AddUnit(text, hours, 'h');
    return text;
}

STime SDuration::Before(const STime& time) const {
    const std::time_t seconds = time.seconds;
    std::tm parts{};
    ::localtime_r(&seconds, &parts);
    parts.tm_year -= years;
    parts.tm_mon -= months;
    parts.tm_mday -= days;
    parts.tm_isdst = -1;  // as the calendar has it there
    const std::time_t there = std::mktime(&parts);
    return {there - std::int64_t{3600} * hours, time.nanoseconds};
}

}  // namespace agent::retention
