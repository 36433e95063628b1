#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "agent/check/CheckRun.h"
#include "agent/cli/Output.h"

/// What `check` and `repair` have in common on the command line.
namespace agent {

/// How deep a check goes, as the user says it.
class CCheckOptions {
public:
    void AddTo(CLI::App& command);
    /// Throws CWrongUseExc for what is no share.
    [[nodiscard]] SCheckOptions MakeOptions() const;

private:
    bool digests_ = false;
    CLI::Option* readData_ = nullptr;
    std::string share_;
    std::uint64_t seed_ = 0;
};

/// "checkpoint 3", "checkpoints 1-4, 7".
[[nodiscard]] std::string NameCheckpoints(const std::vector<std::uint64_t>& ids);

/// One damaged object: a line with what is wrong, and one for each file (up to ten) that it takes along.
void PrintFinding(EOutput output, const SFinding& finding);
/// For each level one sentence on what was proven and what was not, then the verdict.
void PrintCheck(EOutput output, const SCheckOptions& options, const SCheckResult& result);

}  // namespace agent
