#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "agent/run/CheckpointFilter.h"

namespace agent {

/// What a user says of which checkpoints are meant.
class CFilterOptions {
public:
    void AddTo(CLI::App& command);
    /// Throws CWrongUseExc for what is no time.
    [[nodiscard]] SCheckpointFilter MakeFilter() const;

private:
    SCheckpointFilter filter_;
    std::string since_;
    std::string until_;
    std::uint64_t last_ = 0;
};

/// A time that an option was given; nothing for none. Throws CWrongUseExc for what is no time.
[[nodiscard]] std::optional<STime> TimeOption(const std::string& text, bool isEnd);

}  // namespace agent
