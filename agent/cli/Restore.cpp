#include <chrono>
#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/CommandLine.h"
#include "agent/cli/Confirm.h"
#include "agent/cli/Interrupt.h"
#include "agent/cli/Prompt.h"
#include "agent/run/RestoreRun.h"
#include "agent/run/SetDocument.h"

namespace agent {

namespace {

const std::vector<std::pair<std::string, EOverwrite>> overwriteRules{{"always", EOverwrite::always},
                                                                     {"if-changed", EOverwrite::ifChanged},
                                                                     {"if-newer", EOverwrite::ifNewer},
                                                                     {"never", EOverwrite::never}};

const char* Word(ERestoreAction action) {
    switch (action) {
        case ERestoreAction::create:
            return "restore";
        case ERestoreAction::replace:
            return "replace";
        default:
            return "delete";
    }
}

std::string CheckWhich(const std::string& text) {
    const std::string id = text.substr(0, text.find(':'));
    const bool isNumber = !id.empty() && id.find_first_not_of("0123456789") == std::string::npos;
    const bool isFolder = id.size() == text.size() || text.substr(id.size() + 1).starts_with('/');
    if (!isNumber && id != "latest") {
        return "'" + id + "' is neither a checkpoint's ID nor 'latest'";
    }
    return isFolder ? "" : "'" + text.substr(id.size() + 1) + "' is no full path of a folder: it must begin with '/'";
}

class CRestoreCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("restore", "Restore a checkpoint, or a part of it");
        command
            ->add_option("CHECKPOINT", which_,
                         "A checkpoint's ID, or 'latest'; with :FOLDER behind it the content of that folder\n"
                         "comes directly into the target")
            ->required()
            ->check(CheckWhich);
        command->add_option("PATH", options_.selection.paths, "Only what lies at or under these full paths");
        auto* target =
            command->add_option("--target", options_.target, "The folder; each root comes to its full path under it")
                ->type_name("DIR");
        auto* inPlace = command->add_flag("--in-place", inPlace_, "Restore each root to where it came from");
        inPlace->excludes(target);
        AddChoice(*command);
        AddRules(*command);
        return command;
    }

    [[nodiscard]] std::string DescribeInterruption() const override { return {}; }

    int Run(const SSettings& settings) override {
        const auto begin = std::chrono::steady_clock::now();
        Complete();
        options_.threads = settings.repository.threads;
        const CInterruptScope interrupt(
            "Interrupted: what was restored stays; the same command with --overwrite if-changed restores the rest.");
        CProgressPrinter progress(settings.output, settings.progress);
        SRestoreSinks sinks;
        sinks.onTrouble = progress.WrapTroubles(TroublePrinter(settings.output));
        sinks.onProgress = [&](const SProgress& now) {
            interrupt.Check();
            progress.Tell(now);
        };
        if (options_.dryRun || settings.verbose > 0) {
            sinks.onAction = [&](ERestoreAction action, const std::string& path) {
                progress.Clear();
                PrintAction(settings.output, action, path);
            };
        }
        const auto result = RunRestore(settings.repository, options_, sinks);
        progress.Clear();
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        Print(settings.output, result, took.count());
        return result.statistics.errors == 0 ? exitDone : exitIncomplete;
    }

private:
    void AddChoice(CLI::App& command) {
        command
            .add_option("--include", options_.selection.include,
                        "Only what matches this pattern (as in .gitignore files); may be repeated")
            ->type_name("PATTERN")
            ->allow_extra_args(false);
        command
            .add_option("--exclude", options_.selection.exclude, "Nothing that matches this pattern; may be repeated")
            ->type_name("PATTERN")
            ->allow_extra_args(false);
    }

    void AddRules(CLI::App& command) {
        SetChoices(command.add_option("--overwrite", options_.overwrite,
                                      "Restore into a folder that is not empty, and replace of what is there: all, "
                                      "what differs by size or time, what is older, or nothing"),
                   overwriteRules);
        command.add_flag("--force-content", options_.compareContent,
                         "Compare content too where size and time are the same");
        command.add_flag("--delete", options_.deleteOthers,
                         "Delete in restored folders what the checkpoint does not have");
        command.add_flag("--yes", yes_, "Do not ask before deleting");
        command.add_flag("--dry-run", options_.dryRun, "Only say what would be done");
        command.add_flag("--verify", options_.verify, "Read back what was written, and compare");
        command.add_flag("--fsync", options_.sync, "End only when all is on the device");
    }

    void Complete() {
        const auto colon = which_.find(':');
        options_.checkpoint = which_.substr(0, colon);
        options_.subfolder = colon == std::string::npos ? std::string() : which_.substr(colon + 1);
        if (options_.target.empty() && !inPlace_) {
            throw CWrongUseExc(
                "Say where to restore to: --target DIR, or --in-place (see 'cloudbackup restore --help')");
        }
        if (inPlace_ && !options_.subfolder.empty()) {
            throw CWrongUseExc("CHECKPOINT:FOLDER needs a --target; in place a folder is named as a PATH");
        }
        if ((inPlace_ || options_.deleteOthers) && options_.overwrite == EOverwrite::refuse) {
            options_.overwrite = EOverwrite::ifChanged;
        }
        if (options_.deleteOthers && !options_.dryRun && !yes_ && !CanAsk()) {
            throw CWrongUseExc("--delete needs --yes where nobody can be asked (--dry-run shows what would go)");
        }
        if (!yes_) {
            options_.confirmDelete = [](std::uint64_t count) {
                return Confirm("Delete " + FormatCount(count, "name") + " that the checkpoint does not have?");
            };
        }
    }

    void PrintAction(EOutput output, ERestoreAction action, const std::string& path) const {
        if (output == EOutput::json) {
            PrintJson({{"event", "action"},
                       {"action", Word(action)},
                       {"dryRun", options_.dryRun},
                       {"path", EscapePath(path)}});
        } else if (output == EOutput::text) {
            PrintLine(std::string(options_.dryRun ? "would " : "") + Word(action) + " " + EscapePath(path));
        }
    }

    void Print(EOutput output, const SRestoreResult& result, double seconds) const {
        if (output == EOutput::json) {
            PrintJson(ToJson(result));
        } else if (output == EOutput::text) {
            PrintText(result, seconds);
        }
    }

    [[nodiscard]] nlohmann::json ToJson(const SRestoreResult& result) const {
        const auto& s = result.statistics;
        return {{"event", "restored"},
                {"checkpoint", result.checkpoint},
                {"target", EscapePath(options_.target)},
                {"dryRun", options_.dryRun},
                {"files", s.files},
                {"folders", s.folders},
                {"others", s.others},
                {"bytes", s.bytes},
                {"unchanged", s.unchanged},
                {"skipped", s.skipped},
                {"deleted", s.deleted},
                {"verified", s.verified},
                {"errors", s.errors}};
    }

    void PrintText(const SRestoreResult& result, double seconds) const {
        const auto& s = result.statistics;
        char took[32];
        std::snprintf(took, sizeof(took), "%.1f s", seconds);
        PrintLine((options_.dryRun ? "Would restore checkpoint " : "Restored checkpoint ") +
                  std::to_string(result.checkpoint) +
                  (inPlace_ ? " in place" : " into " + EscapePath(options_.target)) + ": " +
                  FormatCount(s.files, "file") + " (" + FormatBytes(s.bytes) + "), " +
                  FormatCount(s.folders, "folder") +
                  (s.others != 0 ? ", " + FormatCount(s.others, "other name") + " (links, devices, ...)" : "") +
                  (options_.dryRun ? "" : std::string(", in ") + took));
        const auto also = [](std::uint64_t count, const char* what) {
            if (count != 0) {
                PrintLine("  " + FormatCount(count) + " " + what);
            }
        };
        also(s.unchanged, "unchanged");
        also(s.skipped, s.skipped == 1 ? "left as it was" : "left as they were");
        also(s.deleted, options_.dryRun ? "would be deleted" : "deleted");
        also(s.verified, "read back and right");
        also(s.errors, "could not be restored; each is named above");
    }

    std::string which_;
    bool inPlace_ = false;
    bool yes_ = false;
    SRestoreOptions options_;
};

}  // namespace

std::unique_ptr<ICommand> MakeRestoreCommand() { return std::make_unique<CRestoreCommand>(); }

}  // namespace agent
