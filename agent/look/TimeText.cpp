#include "agent/look/TimeText.h"

#include <array>
#include <ctime>

#include "common/exc.h"

namespace agent {

namespace {

constexpr std::uint32_t lastNanosecond = 999'999'999;

struct SForm {
    const char* format;  // of strptime
    const char* shape;   // digits as '0', so that nothing is guessed from a text cut short
    std::int64_t seconds;
};

constexpr std::array<SForm, 5> forms{{
    {"%Y-%m-%d", "0000-00-00", 86400},
    {"%Y-%m-%dT%H:%M", "0000-00-00T00:00", 60},
    {"%Y-%m-%dT%H:%M:%S", "0000-00-00T00:00:00", 1},
    {"%Y-%m-%d %H:%M", "0000-00-00 00:00", 60},
    {"%Y-%m-%d %H:%M:%S", "0000-00-00 00:00:00", 1},
}};

std::string ShapeOf(std::string text) {
    for (char& c : text) {
        c = c >= '0' && c <= '9' ? '0' : c;
    }
    return text;
}

/// strptime takes the 31st of any month; timegm then makes another day of it.
bool IsRealDay(const std::tm& asked, const std::tm& made) {
    return asked.tm_mday == made.tm_mday && asked.tm_mon == made.tm_mon && asked.tm_hour == made.tm_hour &&
           asked.tm_min == made.tm_min && asked.tm_sec == made.tm_sec;
}

}  // namespace

STime ParseTime(const std::string& text, ETimeEnd end) {
    const std::string plain = text.ends_with('Z') ? text.substr(0, text.size() - 1) : text;
    for (const auto& form : forms) {
        std::tm asked{};
        if (ShapeOf(plain) != form.shape) {
            continue;
        }
        const char* const rest = ::strptime(plain.c_str(), form.format, &asked);
        if (rest == nullptr || *rest != '\0') {
            break;
        }
        std::tm made = asked;
        const std::time_t begin = ::timegm(&made);
        if (!IsRealDay(asked, made)) {
            break;
        }
        return end == ETimeEnd::begin ? STime{begin, 0} : STime{begin + form.seconds - 1, lastNanosecond};
    }
    throw exc::CRuntimeExc("'%1' is no time such as 2026-11-21 or 2026-11-21T08:15:00 (UTC)", text);
}

}  // namespace agent
