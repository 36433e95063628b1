#include <chrono>
#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/run/RestoreRun.h"
#include "agent/run/SetDocument.h"

namespace agent {

namespace {

class CRestoreCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("restore", "Restore a checkpoint into an empty folder");
        AddCheckpointArgument(*command, checkpoint_);
        command->add_option("--target", target_, "The folder; each root comes to its full path under it")
            ->required()
            ->type_name("DIR");
        return command;
    }

    int Run(const SSettings& settings) override {
        const auto begin = std::chrono::steady_clock::now();
        const auto result = RunRestore(settings.repository, checkpoint_, target_, TroublePrinter(settings.output));
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        Print(settings.output, result, took.count());
        return result.statistics.errors == 0 ? exitDone : exitIncomplete;
    }

private:
    void Print(EOutput output, const SRestoreResult& result, double seconds) const {
        const auto& s = result.statistics;
        if (output == EOutput::json) {
            PrintJson({{"event", "restored"},
                       {"checkpoint", result.checkpoint},
                       {"target", EscapePath(target_)},
                       {"files", s.files},
                       {"folders", s.folders},
                       {"others", s.others},
                       {"bytes", s.bytes},
                       {"errors", s.errors}});
        } else if (output == EOutput::text) {
            char text[32];
            std::snprintf(text, sizeof(text), "%.1f s", seconds);
            PrintLine("Restored checkpoint " + std::to_string(result.checkpoint) + " into " + EscapePath(target_) +
                      ": " + FormatCount(s.files, "file") + ", " + FormatBytes(s.bytes) + ", " +
                      FormatCount(s.folders, "folder") + ", " + FormatCount(s.others, "link") + " and the like, in " +
                      text);
        }
    }

    std::string checkpoint_;
    std::string target_;
};

}  // namespace

std::unique_ptr<ICommand> MakeRestoreCommand() { return std::make_unique<CRestoreCommand>(); }

}  // namespace agent
