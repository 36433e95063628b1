#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/run/LongTerm.h"

namespace agent {

namespace {

class CKeepCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command =
            app.add_subcommand("keep", "Keep a checkpoint for the long term: rules of 'forget' leave it alone");
        AddCheckpointArgument(*command, checkpoint_);
        command->add_flag("--remove", remove_, "End that: the checkpoint is as any other again");
        return command;
    }

    [[nodiscard]] std::string DescribeInterruption() const override {
        return "Interrupted: 'cloudbackup checkpoints' shows what is kept.";
    }

    int Run(const SSettings& settings) override {
        CSetUpkeep upkeep(settings.repository, CSetUpkeep::EMode::change);
        const auto change = remove_ ? EndLongTerm(upkeep, checkpoint_) : KeepForLongTerm(upkeep, checkpoint_);
        if (settings.output == EOutput::json) {
            PrintJson(
                {{"event", "longTerm"}, {"id", change.id}, {"longTerm", !remove_}, {"changed", change.isChanged}});
        } else if (settings.output == EOutput::text) {
            PrintLine("Checkpoint " + std::to_string(change.id) + (change.isChanged ? " is " : " was ") +
                      (remove_ ? "not kept for the long term" : "kept for the long term") +
                      (change.isChanged ? (remove_ ? " any more" : " from now on") : " before"));
        }
        return exitDone;
    }

private:
    std::string checkpoint_;
    bool remove_ = false;
};

}  // namespace

std::unique_ptr<ICommand> MakeKeepCommand() { return std::make_unique<CKeepCommand>(); }

}  // namespace agent
