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
/// One line of JSON, without its end; bytes that are no UTF-8 are replaced.
[[nodiscard]] std::string JsonLine(const nlohmann::json& value);
void PrintJson(const nlohmann::json& value);
/// A message for people, in which texts of stores and names of files may stand: control characters and bytes that are
/// no UTF-8 are written as EscapePath writes them, a backslash stays one.
[[nodiscard]] std::string EscapeText(const std::string& text);
/// One line to standard error, behind the program's name and escaped.
void PrintTrouble(const std::string& line);
/// The same of a text with several lines.
void PrintTroubleLines(const std::string& text);
/// Writes what is still held back of standard output. When that, or anything before it, could not be written, this is
/// told on standard error and the result is false.
[[nodiscard]] bool FinishOutput();
/// Names each trouble of a run as it comes up.
[[nodiscard]] trouble_sink_t TroublePrinter(EOutput output);

}  // namespace agent
