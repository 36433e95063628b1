#pragma once

#include <nlohmann/json.hpp>

#include "agent/run/SetDocument.h"
#include "agent/run/SourceBackup.h"

/// The JSON forms that several commands print.
namespace agent {

[[nodiscard]] nlohmann::json StatisticsToJson(const SRootStatistics& statistics);
[[nodiscard]] nlohmann::json CheckpointToJson(std::uint64_t id, const SSetDocument& document);
/// `word` says what happens to the name.
[[nodiscard]] nlohmann::json ChangeToJson(const char* word, const SChange& change);
/// The sizes are of files, in bytes.
[[nodiscard]] nlohmann::json DryRunToJson(const SSetDocument& document, std::uint64_t newBytes,
                                          std::uint64_t changedBytes, std::uint64_t removedBytes);

}  // namespace agent
