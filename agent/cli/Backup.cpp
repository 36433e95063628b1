#include <chrono>
#include <nlohmann/json.hpp>

#include "agent/cli/BackupOptions.h"
#include "agent/cli/Command.h"
#include "agent/cli/Interrupt.h"
#include "agent/cli/JsonForms.h"
#include "agent/cli/PasswordOptions.h"
#include "agent/run/BackupRun.h"

namespace agent {

namespace {

const char* Word(EChange kind) {
    switch (kind) {
        case EChange::added:
            return "new";
        case EChange::changed:
            return "changed";
        default:
            return "removed";
    }
}

/// Prints what a dry run finds, as it finds it.
class CChangePrinter {
public:
    explicit CChangePrinter(EOutput output) : output_(output) {}

    void Print(const SChange& change) {
        bytes_[static_cast<std::size_t>(change.kind)] += change.size;
        if (output_ == EOutput::json) {
            PrintJson(ChangeToJson(Word(change.kind), change));
        } else if (output_ == EOutput::text) {
            char text[32];
            const bool isFile = change.type == EEntryType::file;
            std::snprintf(text, sizeof(text), "%-8s%12s  ", Word(change.kind),
                          isFile ? FormatBytes(change.size).c_str() : "");
            PrintLine(text + EscapePath(change.path) + (change.type == EEntryType::directory ? "/" : ""));
        }
    }

    [[nodiscard]] std::uint64_t GetBytes(EChange kind) const { return bytes_[static_cast<std::size_t>(kind)]; }

private:
    const EOutput output_;
    std::array<std::uint64_t, 3> bytes_{};
};

class CBackupCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("backup", "Back folders or files up as the next checkpoint");
        options_.AddTo(*command);
        AddFirstKeyOptions(*command, keys_);
        return command;
    }

    [[nodiscard]] std::string DescribeInterruption() const override { return {}; }

    int Run(const SSettings& settings) override {
        const auto begin = std::chrono::steady_clock::now();
        const SBackupOptions options = options_.Make();
        SRepositoryOptions repository = settings.repository;
        repository.keys.noEncryption = keys_.noEncryption;
        repository.keys.cost = keys_.cost;
        CChangePrinter changes(settings.output);
        SBackupSinks sinks;
        const CInterruptScope interrupt(options.dryRun
                                            ? "Interrupted: nothing was written."
                                            : "Interrupted: no checkpoint was made; what was uploaded is found again "
                                              "by the next backup.");
        CProgressPrinter progress(settings.output, settings.progress);
        sinks.onTrouble = progress.WrapTroubles(TroublePrinter(settings.output));
        sinks.onProgress = [&](const SProgress& now) {
            interrupt.Check();
            progress.Tell(now);
        };
        if (options.dryRun) {
            sinks.onChange = [&](const SChange& change) {
                progress.Clear();
                changes.Print(change);
            };
        }
        const auto result = RunBackup(repository, options, sinks);
        progress.Clear();
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
        if (options.dryRun) {
            PrintDryRun(settings, result, changes);
        } else {
            PrintResult(settings, result, options.longTerm, took.count());
        }
        return result.troubles == 0 ? exitDone : exitIncomplete;
    }

private:
    static void PrintDryRun(const SSettings& settings, const SBackupResult& result, const CChangePrinter& changes) {
        if (settings.output == EOutput::json) {
            PrintJson(DryRunToJson(result.document, changes.GetBytes(EChange::added),
                                   changes.GetBytes(EChange::changed), changes.GetBytes(EChange::removed)));
            return;
        }
        if (settings.output != EOutput::text) {
            return;
        }
        PrintLine("Would make the next checkpoint of set '" + settings.repository.set +
                  "' (dry run: nothing was written)");
        for (const auto& root : result.document.roots) {
            PrintRoot(root, root.checkpoint != 0);
        }
        PrintLine("Files: " + FormatBytes(changes.GetBytes(EChange::added)) + " new, " +
                  FormatBytes(changes.GetBytes(EChange::changed)) + " changed, " +
                  FormatBytes(changes.GetBytes(EChange::removed)) + " removed");
    }

    static void PrintResult(const SSettings& settings, const SBackupResult& result, bool longTerm, double seconds) {
        if (settings.output == EOutput::json) {
            nlohmann::json value = CheckpointToJson(result.checkpoint, result.document);
            value["longTerm"] = longTerm;
            PrintJson(value);
            return;
        }
        if (settings.output != EOutput::text) {
            return;
        }
        PrintLine("Checkpoint " + std::to_string(result.checkpoint) + " of set '" + settings.repository.set + "'" +
                  (longTerm ? ", kept for the long term" : ""));
        for (const auto& root : result.document.roots) {
            const bool carriedOn = root.checkpoint != result.checkpoint;
            PrintRoot(root, carriedOn);
            if (!carriedOn) {
                PrintStored(root.statistics);
            }
        }
        char text[32];
        std::snprintf(text, sizeof(text), "%.1f s", seconds);
        PrintLine("Took " + std::string(text));
    }

    static void PrintRoot(const SRoot& root, bool carriedOn) {
        const auto& s = root.statistics;
        PrintLine("  " + EscapePath(root.path) + ": " + FormatCount(s.files, "file") + ", " + FormatBytes(s.bytes) +
                  (carriedOn ? ", as in checkpoint " + std::to_string(root.checkpoint) : ""));
        if (!carriedOn) {
            PrintLine("    " + FormatCount(s.added) + " new, " + FormatCount(s.changed) + " changed, " +
                      FormatCount(s.removed) + " removed, " + FormatCount(s.unchanged) + " unchanged");
        }
    }

    static void PrintStored(const SRootStatistics& s) {
        PrintLine("    " + FormatBytes(s.bytesRead) + " read, " + FormatBytes(s.newBytes) + " of it new, stored as " +
                  FormatBytes(s.storedBytes) + " in " + FormatCount(s.blocksUploaded, "block") +
                  (s.blocksFound != 0 ? "; " + FormatCount(s.blocksFound, "block") + " of an earlier run found" : ""));
    }

    SKeyOptions keys_;  // but for their source
    CBackupOptions options_;
};

}  // namespace

std::unique_ptr<ICommand> MakeBackupCommand() { return std::make_unique<CBackupCommand>(); }

}  // namespace agent
