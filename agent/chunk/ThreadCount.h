#pragma once

#include <cstddef>

namespace agent {

/// `wanted`, or, when that is 0, as many threads as the machine runs at once, at most 16.
[[nodiscard]] std::size_t ThreadCount(unsigned wanted);

}  // namespace agent
