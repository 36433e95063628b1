#pragma once

#include <string>

namespace agent {

/// Where a secret may come from. It is never an option itself: every user of the machine can read those.
struct SSecretSource {
    /// "secret access key".
    std::string name;
    /// The option that names a file with the secret in its first line, and what was given for it; empty for nothing.
    std::string fileOption;
    std::string file;
    /// The variable of the environment.
    std::string variable;
};

/// The secret: from the file when one is named, else from the environment, else from whoever sits at the terminal.
/// Throws CWrongUseExc when it comes from nowhere, and exc::CRuntimeExc when the file cannot be read or has nothing.
[[nodiscard]] std::string ReadSecret(const SSecretSource& source);

}  // namespace agent
