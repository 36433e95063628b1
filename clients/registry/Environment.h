#pragma once

#include <functional>
#include <string>

namespace clients {

/// Reads a variable of the environment; empty when it is not set.
using environment_t = std::function<std::string(const std::string& name)>;

/// The process's own.
[[nodiscard]] std::string ProcessEnvironment(const std::string& name);

}  // namespace clients
