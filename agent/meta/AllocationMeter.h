#pragma once

#include <cstddef>

namespace agent::test_kit {

/// Measures what operator new hands out, in bytes, in the whole program. One at a time, and one thread.
class AllocationMeter {
public:
    AllocationMeter();

    /// How much more is held than at the beginning.
    [[nodiscard]] std::size_t GetHeld() const;
    /// The most that was held at once, above the beginning.
    [[nodiscard]] std::size_t GetPeak() const;

private:
    std::size_t begin_;
};

}  // namespace agent::test_kit
