#include "agent/cli/Output.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string_view>

#include "agent/run/SetDocument.h"
#include "agent/select/PatternList.h"

namespace agent {

std::string FormatBytes(std::uint64_t bytes) {
    if (bytes < 1024) {
        return FormatCount(bytes, "byte");
    }
    static constexpr std::array<const char*, 6> units{"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    double value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    while (value >= 1024 && unit + 1 < units.size()) {
        value /= 1024;
        ++unit;
    }
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f %s", value, units[unit]);
    return text.data();
}

std::string FormatCount(std::uint64_t count) {
    std::string text = std::to_string(count);
    for (std::size_t at = text.size(); at > 3; at -= 3) {
        text.insert(at - 3, ",");
    }
    return text;
}

std::string FormatCount(std::uint64_t count, const std::string& noun) {
    return FormatCount(count) + " " + noun + (count == 1 ? "" : "s");
}

void PrintLine(const std::string& line) { std::printf("%s\n", line.c_str()); }

std::string JsonLine(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void PrintJson(const nlohmann::json& value) { PrintLine(JsonLine(value)); }

std::string EscapeText(const std::string& text) {
    std::string shown;
    for (std::size_t begin = 0; begin <= text.size();) {
        const std::size_t end = std::min(text.find('\\', begin), text.size());
        shown += EscapePath(text.substr(begin, end - begin));
        shown += end < text.size() ? "\\" : "";
        begin = end + 1;
    }
    return shown;
}

void PrintTrouble(const std::string& line) {
    std::fflush(stdout);
    std::fprintf(stderr, "cloudbackup: %s\n", EscapeText(line).c_str());
}

void PrintTroubleLines(const std::string& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    PrintTrouble(text.substr(0, end));
    for (const auto line : SplitLines(std::string_view(text).substr(std::min(end + 1, text.size())))) {
        std::fprintf(stderr, "%s\n", EscapeText(std::string(line)).c_str());
    }
}

bool FinishOutput() {
    errno = 0;
    const bool isWhole = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
    if (!isWhole) {
        const std::string reason = errno == 0 ? "" : std::string(": ") + std::strerror(errno);  // NOLINT: one thread
        PrintTrouble("Not everything could be written to standard output" + reason);
    }
    return isWhole;
}

trouble_sink_t TroublePrinter(EOutput output) {
    return [output](const STrouble& trouble) {
        if (output == EOutput::json) {
            PrintJson(
                {{"event", "trouble"}, {"path", EscapePath(trouble.path)}, {"reason", EscapeText(trouble.reason)}});
        }
        PrintTrouble(EscapePath(trouble.path) + ": " + trouble.reason);
    };
}

}  // namespace agent
