#pragma once

#include <cstdint>

#include "common/export.h"

namespace progress {

/// Receives the progress of a long operation. Called by the thread that does the work, one call at a time.
class CB_EXPORT progress_base_t {
public:
    virtual ~progress_base_t() = default;
    /// `done` of `total` objects are processed; both may grow while the work goes on.
    virtual void SetProgress(std::uint64_t done, std::uint64_t total) = 0;
};

}  // namespace progress
