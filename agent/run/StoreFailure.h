#pragma once

#include <exception>

namespace agent {

/// Throws `failure` on, its cause with it, unless it says that the object itself is missing or damaged: a store that
/// cannot be reached, or refuses, is no damage. To be called in the handler that caught it.
void RethrowUnlessDamage(const std::exception& failure);

}  // namespace agent
