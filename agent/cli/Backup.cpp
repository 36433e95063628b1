#include "agent/run/BackupRun.h"

#include <chrono>
#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/JsonForms.h"

namespace agent {

namespace {

class CBackupCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("backup", "Back folders or files up as the next checkpoint");
        command->add_option("PATH", sources_, "What to back up")->required();
        return command;
    }

    int Run(const SSettings& settings) override {
        const auto begin = std::chrono::steady_clock::now();
        const auto result = RunBackup(settings.repository, sources_, TroublePrinter(settings.output));
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        if (settings.output == EOutput::json) {
            PrintJson(CheckpointToJson(result.checkpoint, result.document));
        } else if (settings.output == EOutput::text) {
            PrintResult(settings, result, took.count());
        }
        return result.troubles == 0 ? exitDone : exitIncomplete;
    }

private:
    static void PrintResult(const SSettings& settings, const SBackupResult& result, double seconds) {
        PrintLine("Checkpoint " + std::to_string(result.checkpoint) + " of set '" + settings.repository.set + "'");
        for (const auto& root : result.document.roots) {
            PrintRoot(root, result.checkpoint);
        }
        char text[32];
        std::snprintf(text, sizeof(text), "%.1f s", seconds);
        PrintLine("Took " + std::string(text));
    }

    static void PrintRoot(const SRoot& root, std::uint64_t checkpoint) {
        const auto& s = root.statistics;
        const bool carriedOn = root.checkpoint != checkpoint;
        PrintLine("  " + EscapePath(root.path) + ": " + FormatCount(s.files, "file") + ", " + FormatBytes(s.bytes) +
                  (carriedOn ? ", as in checkpoint " + std::to_string(root.checkpoint) : ""));
        if (carriedOn) {
            return;
        }
        PrintLine("    " + FormatCount(s.added) + " new, " + FormatCount(s.changed) + " changed, " +
                  FormatCount(s.removed) + " removed, " + FormatCount(s.unchanged) + " unchanged");
        PrintLine("    " + FormatBytes(s.bytesRead) + " read, " + FormatBytes(s.newBytes) + " of it new, stored as " +
                  FormatBytes(s.storedBytes) + " in " + FormatCount(s.blocksUploaded, "block") +
                  (s.blocksFound != 0 ? "; " + FormatCount(s.blocksFound, "block") + " of an earlier run found" : ""));
    }

    std::vector<std::string> sources_;
};

}  // namespace

std::unique_ptr<ICommand> MakeBackupCommand() { return std::make_unique<CBackupCommand>(); }

}  // namespace agent
