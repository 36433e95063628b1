#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "agent/cli/Output.h"
#include "agent/run/OpenedRepository.h"
#include "common/exc.h"

namespace agent {

/// How the program ends.
enum EExit : int {
    exitDone = 0,
    exitFailed = 1,
    exitWrongUse = 2,
    exitIncomplete = 3,  ///< finished, but some files could not be read or restored; each is named
};

/// What every command is told.
struct SSettings {
    SRepositoryOptions repository;
    EOutput output = EOutput::text;
    /// How often -v was given.
    int verbose = 0;
};

/// What the user gave is not enough, or makes no sense: the program ends with exitWrongUse.
class CWrongUseExc : public exc::CRuntimeExc {
public:
    using CRuntimeExc::CRuntimeExc;
};

/// One command of the program: its part of the command line, and what it does.
class ICommand {
public:
    virtual ~ICommand() = default;
    /// Adds the command with its options; what the user gives lands in the object.
    virtual CLI::App* Register(CLI::App& app) = 0;
    /// Returns the exit code; what it throws is printed as the failure.
    virtual int Run(const SSettings& settings) = 0;
    /// Whether the user must say where the repository is.
    [[nodiscard]] virtual bool NeedsRepository() const { return true; }
};

/// The argument that names a checkpoint: an id, or "latest".
void AddCheckpointArgument(CLI::App& command, std::string& checkpoint);

[[nodiscard]] std::unique_ptr<ICommand> MakeInitCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeBackupCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeCheckpointsCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeLsCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeRestoreCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeSpecCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeCheckClientCommand();

}  // namespace agent
