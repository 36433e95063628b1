#include <algorithm>
#include <nlohmann/json.hpp>

#include "agent/check/RepairRun.h"
#include "agent/cli/CheckForms.h"
#include "agent/cli/Command.h"
#include "agent/cli/PruneForms.h"
#include "agent/look/Versions.h"

namespace agent {

namespace {

class CRepairCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand(
            "repair",
            "Check, store lost blocks again from their files, and make a checkpoint without what is lost for good");
        command->footer(
            "Blocks that are lost or damaged are first made again from the files that were backed up, where this "
            "machine\nstill has them unchanged: all checkpoints have their content back then. What is left of the loss "
            "the next\nbackup reads again. Nothing is deleted.");
        check_.AddTo(*command);
        command->add_flag("-n,--dry-run", options_.dryRun, "Only tell what would be done");
        CLI::Option* source =
            command
                ->add_option("--source", options_.source,
                             "The folder under which the files are by their full paths, when they are not where they "
                             "were backed up")
                ->type_name("DIR");
        AddMinAgeOption(*command, minAge_,
                        "Do nothing when the client has made a checkpoint since: a run may be under way");
        command->add_flag("--no-source", noSource_, "Do not make blocks again from files")->excludes(source);
        command->add_flag("--remove-unreadable", options_.removeUnreadable,
                          "Take away checkpoints whose documents are damaged (a copy of each stays on this machine)");
        return command;
    }

    [[nodiscard]] std::string DescribeInterruption() const override {
        return "Interrupted: what was mended stays so; run it again for the rest.";
    }

    int Run(const SSettings& settings) override {
        SRepairOptions options = options_;
        options.check = check_.MakeOptions();
        options.useSource = !noSource_;
        options.minAge = MinAgeOf(minAge_);
        while (options.source.ends_with('/')) {
            options.source.pop_back();
        }
        CProgressPrinter progress(settings.output, settings.progress);
        options.check.onProgress = [&](const SProgress& now) { progress.Tell(now); };
        const SRepairResult result = RunRepair(settings.repository, options);
        progress.Clear();
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
        nlohmann::json rebuilt = nlohmann::json::array();
        for (const auto& object : result.rebuiltBlocks) {
            rebuilt.push_back(EscapePath(object));
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
                {"rebuiltBlocks", rebuilt},
                {"removedDocuments", removed},
                {"unreadableCheckpoints", result.unreadable},
                {"foreignCheckpoints", result.foreign}};
    }

    void PrintText(const SRepairResult& result) const {
        for (const auto& document : result.removed) {
            PrintLine("Checkpoint " + std::to_string(document.checkpoint) +
                      " was taken away; its document is kept as " + EscapePath(document.copy));
        }
        for (const auto& object : result.rebuiltBlocks) {
            PrintLine(std::string(options_.dryRun ? "would be " : "") + "stored again from its files: '" +
                      EscapePath(object) + "'");
        }
        for (const auto& root : result.roots) {
            PrintRoot(root);
        }
        PrintUnreadable(result);
        if (result.checkpoint != 0) {
            PrintLine("Checkpoint " + std::to_string(result.checkpoint) + " is checkpoint " +
                      std::to_string(result.base) + " without what is lost. The next backup reads those files again.");
        } else if (result.roots.empty() && result.base != 0) {
            PrintLine("Checkpoint " + std::to_string(result.base) + ", the last one, needs no " +
                      (result.rebuiltBlocks.empty() ? "repair." : "further repair."));
        }
        const bool hasOlder =
            !result.check.damagedVersions.empty() ||
            std::ranges::any_of(result.check.damage, [](const auto& one) { return !one.second.IsEmpty(); });
        if (hasOlder && result.base != 0) {
            PrintLine("Earlier checkpoints that were named stay as they are; 'forget' removes those of no more use.");
        }
    }

    static std::string DocumentsOf(const std::vector<std::uint64_t>& ids) {
        return std::string(ids.size() == 1 ? "the document" : "the documents") + " of " + NameCheckpoints(ids);
    }

    static void PrintUnreadable(const SRepairResult& result) {
        std::vector<std::uint64_t> damaged;
        std::ranges::set_difference(result.unreadable, result.foreign, std::back_inserter(damaged));
        if (!damaged.empty()) {
            PrintTrouble(DocumentsOf(damaged) + " cannot be read: 'repair --remove-unreadable' takes " +
                         (damaged.size() == 1 ? "it" : "them") + " away");
        }
        if (!result.foreign.empty()) {
            PrintTrouble(
                DocumentsOf(result.foreign) +
                " cannot be read, yet may be whole (a later format, another key, or not authentic): left alone");
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
    bool noSource_ = false;
    std::string minAge_;
};

}  // namespace

std::unique_ptr<ICommand> MakeRepairCommand() { return std::make_unique<CRepairCommand>(); }

}  // namespace agent
