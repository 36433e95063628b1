#pragma once

#include <string>

#include "agent/model/Entry.h"

namespace agent {

/// Which end of the time that a text leaves open is meant: of a day alone, its first or its last moment.
enum class ETimeEnd { begin, end };

/// "2026-11-21", "2026-11-21T08:15", "2026-11-21T08:15:30", each with or without "Z" at its end and with "T" or a blank
/// between; always UTC, as times are printed. Throws exc::CRuntimeExc for any other text and for days there are not.
[[nodiscard]] STime ParseTime(const std::string& text, ETimeEnd end = ETimeEnd::begin);

}  // namespace agent
