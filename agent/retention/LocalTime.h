#pragma once

#include <string>

#include "agent/model/Entry.h"

namespace agent::retention {

/// The time in the local time zone, by a format of strftime.
[[nodiscard]] std::string FormatLocalTime(const STime& time, const char* format);
/// "2026-11-20 14:03:07", for a person.
[[nodiscard]] std::string ToLocalText(const STime& time);

}  // namespace agent::retention
