#include "agent/cli/Output.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "agent/run/SetDocument.h"

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

void PrintJson(const nlohmann::json& value) { PrintLine(value.dump()); }

void PrintTrouble(const std::string& line) {
    std::fflush(stdout);
    std::fprintf(stderr, "cloudbackup: %s\n", line.c_str());
}

trouble_sink_t TroublePrinter(EOutput output) {
    return [output](const STrouble& trouble) {
        if (output == EOutput::json) {
            PrintJson({{"event", "trouble"}, {"path", EscapePath(trouble.path)}, {"reason", trouble.reason}});
        }
        PrintTrouble(EscapePath(trouble.path) + ": " + trouble.reason);
    };
}

}  // namespace agent
