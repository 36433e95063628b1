#include "clients/http/HttpDate.h"

#include <algorithm>
#include <array>
#include <ctime>

namespace clients::http {

namespace {

constexpr std::string_view days = "SunMonTueWedThuFriSat";
constexpr std::string_view months = "JanFebMarAprMayJunJulAugSepOctNovDec";
constexpr std::string_view pattern = "Www, dd Mmm yyyy hh:mm:ss GMT";

std::string_view Name(std::string_view names, int number) {
    return names.substr(3 * static_cast<std::size_t>(number), 3);
}

std::string Digits(int value, std::size_t count) {
    std::string text = std::to_string(value);
    return std::string(count - std::min(count, text.size()), '0') + text;
}

/// -1 for no number.
int Number(std::string_view text) {
    int value = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return -1;
        }
        value = 10 * value + (c - '0');
    }
    return value;
}

/// Where the date has punctuation, it must be the date's own.
bool HasShape(std::string_view text) {
    if (text.size() != pattern.size()) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isFree = std::string_view("Wwdmyhs").find(pattern[i]) != std::string_view::npos;
        const bool isMonth = i >= 8 && i < 11;
        if (!isFree && !isMonth && text[i] != pattern[i]) {
            return false;
        }
    }
    return true;
}

}  // namespace

std::string HttpDate(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::string text(Name(days, parts.tm_wday));
    text += ", " + Digits(parts.tm_mday, 2) + " " + std::string(Name(months, parts.tm_mon)) + " ";
    text += Digits(parts.tm_year + 1900, 4) + " " + Digits(parts.tm_hour, 2) + ":";
    return text + Digits(parts.tm_min, 2) + ":" + Digits(parts.tm_sec, 2) + " GMT";
}

std::chrono::system_clock::time_point ParseHttpDate(std::string_view text) {
    if (!HasShape(text)) {
        return {};
    }
    const std::size_t month = months.find(text.substr(8, 3));
    const std::array<int, 5> numbers = {Number(text.substr(5, 2)), Number(text.substr(12, 4)),
                                        Number(text.substr(17, 2)), Number(text.substr(20, 2)),
                                        Number(text.substr(23, 2))};
    for (const int number : numbers) {
        if (number < 0) {
            return {};
        }
    }
    if (month == std::string_view::npos || month % 3 != 0) {
        return {};
    }
    std::tm parts{};
    parts.tm_mday = numbers[0];
    parts.tm_mon = static_cast<int>(month / 3);
    parts.tm_year = numbers[1] - 1900;
    parts.tm_hour = numbers[2];
    parts.tm_min = numbers[3];
    parts.tm_sec = numbers[4];
    const bool isDate = parts.tm_mday >= 1 && parts.tm_mday <= 31 && parts.tm_hour < 24 && parts.tm_min < 60 &&
                        parts.tm_sec <= 60 && numbers[1] >= 1970 && numbers[1] < 2200;  // what the clock can hold
    return isDate ? std::chrono::system_clock::from_time_t(::timegm(&parts)) : std::chrono::system_clock::time_point();
}

}  // namespace clients::http
