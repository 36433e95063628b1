#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "agent/run/Trouble.h"

/// What the program prints: results to standard output, troubles to standard error.
namespace agent {

enum class EOutput { text, json, quiet };

/// "12.3 MiB", "517 bytes".
[[nodiscard]] std::string FormatBytes(std::uint64_t bytes);
/// "1,234,567".
[[nodiscard]] std::string FormatCount(std::uint64_t count);
/// The count with the noun in its right form: "1 file", "2 files".
[[nodiscard]] std::string FormatCount(std::uint64_t count, const std::string& noun);

void PrintLine(const std::string& line);
/// One line of JSON.
void PrintJson(const nlohmann::json& value);
/// One line to standard error, behind the program's name.
void PrintTrouble(const std::string& line);
/// Names each trouble of a run as it comes up.
[[nodiscard]] trouble_sink_t TroublePrinter(EOutput output);

}  // namespace agent
