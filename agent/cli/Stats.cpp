#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/FilterOptions.h"
#include "agent/look/StatsRun.h"

namespace agent {

namespace {

double Ratio(std::uint64_t whole, std::uint64_t part) {
    return part == 0 ? 0 : static_cast<double>(whole) / static_cast<double>(part);
}

std::string FormatRatio(std::uint64_t whole, std::uint64_t part) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.2f", Ratio(whole, part));
    return text.data();
}

class CStatsCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command =
            app.add_subcommand("stats", "Tell how much checkpoints hold, and what it takes in the store");
        AddCheckpointArgument(*command, checkpoint_)
            ->required(false)
            ->description("A checkpoint's ID, or 'latest' (default: all checkpoints of the set together)");
        filter_.AddTo(*command);
        return command;
    }

    int Run(const SSettings& settings) override {
        const SCheckpointFilter filter = filter_.MakeFilter();
        COpenedCheckpoint opened(settings.repository, checkpoint_.empty() ? "latest" : checkpoint_);
        auto list = ListCheckpoints(opened.GetRepository(), *opened.GetBackup());
        if (!checkpoint_.empty()) {
            std::erase_if(list, [&](const auto& info) { return info.id != opened.GetId(); });
        }
        const auto statistics = CountStore(opened, Choose(filter, std::move(list)));
        if (settings.output == EOutput::json) {
            PrintJson(ToJson(statistics));
        } else if (settings.output == EOutput::text) {
            PrintText(statistics);
        }
        return exitDone;
    }

private:
    static nlohmann::json ToJson(const SStoreStatistics& s) {
        return {{"event", "statistics"},
                {"checkpoints", s.checkpoints},
                {"files", s.files},
                {"folders", s.folders},
                {"others", s.others},
                {"restoreBytes", s.restoreBytes},
                {"storedBytes", s.GetStoredBytes()},
                {"chunks", s.chunks},
                {"plainBytes", s.plainBytes},
                {"chunkBytes", s.chunkBytes},
                {"blocks", s.blocks},
                {"blockBytes", s.blockBytes},
                {"wasteBytes", s.GetWaste()},
                {"metadataObjects", s.metadataObjects},
                {"metadataBytes", s.metadataBytes},
                {"compressionRatio", Ratio(s.plainBytes, s.chunkBytes)}};
    }

    static void PrintText(const SStoreStatistics& s) {
        PrintLine("Checkpoints:    " + FormatCount(s.checkpoints));
        PrintLine("To restore:     " + FormatBytes(s.restoreBytes) + " in " + FormatCount(s.files, "file") + ", " +
                  FormatCount(s.folders, "folder") + ", " + FormatCount(s.others, "other"));
        PrintLine("Contents:       " + FormatBytes(s.plainBytes) + " in " + FormatCount(s.chunks, "chunk") +
                  ", each counted once");
        PrintLine("Compressed to:  " + FormatBytes(s.chunkBytes) + ", ratio " +
                  FormatRatio(s.plainBytes, s.chunkBytes));
        PrintLine("Stored:         " + FormatBytes(s.GetStoredBytes()) + ": " + FormatCount(s.blocks, "block") +
                  " of " + FormatBytes(s.blockBytes) + ", " + FormatCount(s.metadataObjects, "metadata object") +
                  " of " + FormatBytes(s.metadataBytes));
        PrintLine("Waste:          " + FormatBytes(s.GetWaste()) + " of the blocks " +
                  (s.checkpoints == 1 ? "is not needed by this checkpoint" : "is needed by none of the checkpoints"));
    }

    std::string checkpoint_;
    CFilterOptions filter_;
};

}  // namespace

std::unique_ptr<ICommand> MakeStatsCommand() { return std::make_unique<CStatsCommand>(); }

}  // namespace agent
