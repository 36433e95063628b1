#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "agent/run/Ownership.h"

/// How clients, sets and owners are printed.
namespace agent {

/// A client or an owner in one line.
[[nodiscard]] std::string ToText(const SCloudRepoIdentity& identity);
[[nodiscard]] std::string ToText(const SSetSummary& set);
void PrintClient(const SClientSummary& client);

[[nodiscard]] nlohmann::json ToJson(const SCloudRepoIdentity& identity);
[[nodiscard]] nlohmann::json ToJson(const SClientSummary& client);

}  // namespace agent
