#pragma once

#include <exception>
#include <string>

namespace agent {

/// A failure in one line for a person: what was asked for could not be done, and the innermost reason. What lies
/// between is for -v.
[[nodiscard]] std::string FailureText(const std::exception& failure);

}  // namespace agent
