#pragma once

#include <string>

#include "agent/cli/Command.h"
#include "agent/run/PruneRun.h"

/// What forget and prune have in common on the command line.
namespace agent {

/// "12h", "1d", "0"; a month counts 30 days and a year 365. Throws exc::CRuntimeExc for what is no duration.
[[nodiscard]] std::chrono::seconds ParseAge(const std::string& text);

/// The option --min-age; empty when it is not given.
void AddMinAgeOption(CLI::App& command, std::string& text,
                     const std::string& description = "Leave what is younger alone: a run of the client may need it");
[[nodiscard]] std::optional<std::chrono::seconds> MinAgeOf(const std::string& text);

/// The option --max-unused; empty when it is not given.
void AddMaxUnusedOption(CLI::App& command, std::string& text);
[[nodiscard]] SUnusedLimit MaxUnusedOf(const std::string& text);

/// Plans and, unless it is a dry run, does a prune of one set, and prints what goes. Returns the exit code.
int PruneAndPrint(CSetUpkeep& upkeep, const SPruneOptions& options, bool dryRun, EOutput output);

}  // namespace agent
