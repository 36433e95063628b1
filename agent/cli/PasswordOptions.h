#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>

#include "agent/run/ClientKeys.h"

namespace agent {

/// Where the password comes from: a file, a command, the environment or the terminal. It is never an option itself,
/// since every user of the machine can read those.
class CPasswordOptions {
public:
    CPasswordOptions() = default;
    CPasswordOptions(const CPasswordOptions&) = delete;
    CPasswordOptions& operator=(const CPasswordOptions&) = delete;

    /// Adds the global options; `keys` gets what they give, with a source that asks this object, which must outlive it.
    void Register(CLI::App& app, SKeyOptions& keys);

private:
    [[nodiscard]] crypto::sec_bytes_t Get(EPasswordUse use);
    [[nodiscard]] std::string Read(EPasswordUse use) const;

    std::string file_;
    std::string command_;
    std::map<bool, crypto::sec_bytes_t> known_;  // whether it is the next one: each is asked for once
};

/// Beside `init` and `backup`, by which a client begins: whether to encrypt, and what the password shall cost.
void AddFirstKeyOptions(CLI::App& command, SKeyOptions& keys);
/// What the password of a new key shall cost.
void AddPasswordCostOptions(CLI::App& command, SPasswordCost& cost);

}  // namespace agent
