#include <nlohmann/json.hpp>

#include "agent/check/RepairRun.h"
#include "agent/cli/CheckForms.h"
#include "agent/cli/Command.h"
#include "agent/look/Versions.h"

namespace agent {

namespace {

class CRepairCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand(
            "repair", "Check, and make a checkpoint like the last one without the files that are lost");
        command->footer(
            "The next backup reads the lost files again. Earlier checkpoints stay as they are, and nothing is "
            "deleted.");
        check_.AddTo(*command);
        command->add_flag("-n,--dry-run", options_.dryRun, "Only tell what would be done");
        command->add_flag(
            "--remove-unreadable", options_.removeUnreadable,
            "Take away checkpoints whose documents cannot be read (a copy of each stays on this machine)");
        return command;
    }

    int Run(const SSettings& settings) override {
        SRepairOptions options = options_;
        options.check = check_.MakeOptions();
        const SRepairResult result = RunRepair(settings.repository, options);
        for (const auto& finding : result.check.findings) {
            PrintFinding(settings.output, finding);
        }
        if (settings.output == EOutput::json) {
            PrintJson(ToJson(result));
        } else if (settings.output == EOutput::text) {
            PrintText(result);
        }
        return result.unreadable.empty() ? exitDone : exitFailed;
    }

private:
    nlohmann::json ToJson(const SRepairResult& result) const {
        nlohmann::json roots = nlohmann::json::array();
        for (const auto& root : result.roots) {
            nlohmann::json files = nlohmann::json::array();
            for (const auto& file : root.lostFiles) {
                files.push_back(EscapePath(file));
            }
            nlohmann::json value{{"path", EscapePath(root.path)}, {"lostFiles", files}};
            if (root.takenFrom) {
                value["takenFromCheckpoint"] = *root.takenFrom;
            }
            roots.push_back(value);
        }
        nlohmann::json removed = nlohmann::json::array();
        for (const auto& document : result.removed) {
            removed.push_back({{"checkpoint", document.checkpoint}, {"copy", EscapePath(document.copy)}});
        }
        return {{"event", "repaired"},
                {"dryRun", options_.dryRun},
                {"base", result.base},
                {"checkpoint", result.checkpoint},
                {"roots", roots},
                {"removedDocuments", removed},
                {"unreadableCheckpoints", result.unreadable}};
    }

    void PrintText(const SRepairResult& result) const {
        for (const auto& document : result.removed) {
            PrintLine("Checkpoint " + std::to_string(document.checkpoint) +
                      " was taken away; its document is kept as " + EscapePath(document.copy));
        }
        for (const auto& root : result.roots) {
            PrintRoot(root);
        }
        if (!result.unreadable.empty()) {
            PrintTrouble("the documents of checkpoints " + FormatIds(result.unreadable) +
                         " cannot be read: 'repair --remove-unreadable' takes them away");
        }
        if (result.checkpoint != 0) {
            PrintLine("Checkpoint " + std::to_string(result.checkpoint) + " is checkpoint " +
                      std::to_string(result.base) + " without what is lost. The next backup reads those files again.");
        } else if (result.roots.empty() && result.base != 0) {
            PrintLine("Checkpoint " + std::to_string(result.base) + ", the last one, needs no repair.");
        }
        const bool hasOlder = !result.check.damage.empty() && !result.check.findings.empty() && result.base != 0;
        if (hasOlder) {
            PrintLine("Earlier checkpoints that were named stay as they are; 'forget' removes those of no more use.");
        }
    }

    void PrintRoot(const SRepairedRoot& root) const {
        const std::string would = options_.dryRun ? "would be " : "";
        if (root.takenFrom) {
            PrintLine(EscapePath(root.path) + ": " + would +
                      (*root.takenFrom == 0 ? "begun anew, no checkpoint's metadata of it can be read"
                                            : "as in checkpoint " + std::to_string(*root.takenFrom)));
        }
        for (const auto& file : root.lostFiles) {
            PrintLine("  " + would + "forgotten: " + EscapePath(file));
        }
    }

    CCheckOptions check_;
    SRepairOptions options_;
};

}  // namespace

std::unique_ptr<ICommand> MakeRepairCommand() { return std::make_unique<CRepairCommand>(); }

}  // namespace agent
