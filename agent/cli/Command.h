#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <vector>

#include "agent/cli/Output.h"
#include "agent/cli/ProgressPrinter.h"
#include "agent/run/OpenedRepository.h"
#include "common/exc.h"

namespace agent {

/// How the program ends.
enum EExit : int {
    exitDone = 0,
    exitFailed = 1,
    exitWrongUse = 2,
    exitIncomplete = 3,     ///< finished, but some files could not be read or restored; each is named
    exitInterrupted = 130,  ///< by the user
};

/// What every command is told.
struct SSettings {
    SRepositoryOptions repository;
    EOutput output = EOutput::text;
    EProgressMode progress = EProgressMode::automatic;
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
    /// What becomes of the work when the user interrupts the command, which then ends before its next call of the
    /// store. Empty where the command sees to that itself.
    [[nodiscard]] virtual std::string DescribeInterruption() const { return "Interrupted."; }
    /// Whether the user must say where the repository is.
    [[nodiscard]] virtual bool NeedsRepository() const { return true; }
};

/// The argument that names a checkpoint: an id, or "latest".
CLI::Option* AddCheckpointArgument(CLI::App& command, std::string& checkpoint, const std::string& name = "CHECKPOINT");

[[nodiscard]] std::unique_ptr<ICommand> MakeInitCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeBackupCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeCheckpointsCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeLsCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeFindCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeDiffCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeCatCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeStatsCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeCheckCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeRepairCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeRestoreCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeForgetCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakePruneCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeKeepCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeClientsCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeOwnerCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeRepositoriesCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeDeleteCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeKeyCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeSpecCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeCompletionCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeManualCommand();
[[nodiscard]] std::unique_ptr<ICommand> MakeCheckClientCommand();

}  // namespace agent
