#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace clients::http {

/// "Sun, 06 Nov 1994 08:49:37 GMT" (RFC 9110, section 5.6.7), whatever the process's locale.
[[nodiscard]] std::string HttpDate(std::chrono::system_clock::time_point time);

/// The time of such a text; the clock's epoch for anything else.
[[nodiscard]] std::chrono::system_clock::time_point ParseHttpDate(std::string_view text);

}  // namespace clients::http
