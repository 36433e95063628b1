#pragma once

#include <nlohmann/json.hpp>

#include "agent/run/SetDocument.h"

/// The JSON forms that several commands print.
namespace agent {

[[nodiscard]] nlohmann::json StatisticsToJson(const SRootStatistics& statistics);
[[nodiscard]] nlohmann::json CheckpointToJson(std::uint64_t id, const SSetDocument& document);

}  // namespace agent
