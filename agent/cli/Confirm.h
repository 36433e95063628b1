#pragma once

#include <string>

namespace agent {

/// Asks on the terminal whether something that cannot be undone shall be done; only "yes" is a yes. Throws CWrongUseExc
/// when nobody can be asked: --yes says it then.
[[nodiscard]] bool Confirm(const std::string& question);

}  // namespace agent
