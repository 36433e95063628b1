#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/Failure.h"
#include "agent/cli/FilterOptions.h"
#include "agent/cli/JsonForms.h"
#include "agent/run/CheckpointFilter.h"

namespace agent {

namespace {

/// What a checkpoint's own run did; roots that were carried on count by their size alone.
SRootStatistics SumOf(const SCheckpointInfo& info) {
    SRootStatistics sum;
    for (const auto& root : info.document.roots) {
        for (const auto& [name, field] : StatisticsFields()) {
            const bool isState = field == &SRootStatistics::files || field == &SRootStatistics::folders ||
                                 field == &SRootStatistics::others || field == &SRootStatistics::bytes;
            if (isState || root.checkpoint == info.id) {
                sum.*field += root.statistics.*field;
            }
        }
    }
    return sum;
}

std::string JoinEscaped(const std::vector<std::string>& texts, const char* separator) {
    std::string joined;
    for (const auto& text : texts) {
        joined += (joined.empty() ? "" : separator) + EscapePath(text);
    }
    return joined;
}

class CCheckpointsCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("checkpoints", "List the checkpoints of the set");
        filter_.AddTo(*command);
        return command;
    }

    int Run(const SSettings& settings) override {
        const auto filter = filter_.MakeFilter();
        auto repository = COpenedRepository::Open4Read(settings.repository);
        std::uint64_t unreadable = 0;
        const auto list = ListCheckpoints(repository, [&](std::uint64_t id, const std::exception& failure) {
            ++unreadable;
            PrintUnreadable(settings.output, id, FailureText(failure));
        });
        if (settings.output == EOutput::text) {
            PrintLine(
                "    ID  TIME                  HOST              FILES        SIZE      STORED  ADDED/CHANGED/REMOVED  "
                "FOLDERS");
        }
        for (const auto& info : Choose(filter, list)) {
            Print(settings.output, info);
        }
        return unreadable == 0 ? exitDone : exitIncomplete;
    }

private:
    static void PrintUnreadable(EOutput output, std::uint64_t id, const std::string& reason) {
        if (output == EOutput::json) {
            PrintJson({{"event", "trouble"}, {"checkpoint", id}, {"reason", EscapeText(reason)}});
        }
        PrintTrouble("checkpoint " + std::to_string(id) + ": " + reason);
    }

    static void Print(EOutput output, const SCheckpointInfo& info) {
        if (output == EOutput::json) {
            nlohmann::json value = CheckpointToJson(info.id, info.document);
            value["longTerm"] = info.isLongTerm;
            value["totals"] = StatisticsToJson(SumOf(info));
            PrintJson(value);
        } else if (output == EOutput::text) {
            PrintRow(info);
        }
    }

    static void PrintRow(const SCheckpointInfo& info) {
        const SRootStatistics sum = SumOf(info);
        const std::string changes =
            FormatCount(sum.added) + "/" + FormatCount(sum.changed) + "/" + FormatCount(sum.removed);
        std::array<char, 192> row{};
        std::snprintf(row.data(), row.size(), "%6lu  %s  %-14.14s %8s %11s %11s  %21s  ", info.id,
                      ToIsoText(info.document.started).c_str(), EscapePath(info.document.host).c_str(),
                      FormatCount(sum.files).c_str(), FormatBytes(sum.bytes).c_str(),
                      FormatBytes(sum.storedBytes).c_str(), changes.c_str());
        std::vector<std::string> paths;
        for (const auto& root : info.document.roots) {
            paths.push_back(root.path);
        }
        PrintLine(row.data() + JoinEscaped(paths, ", ") + NotesOf(info));
    }

    /// Tags, description and the long-term mark: most checkpoints have none, so they share the end of the line.
    static std::string NotesOf(const SCheckpointInfo& info) {
        std::string notes;
        if (info.isLongTerm) {
            notes += "  [long-term]";
        }
        if (!info.document.tags.empty()) {
            notes += "  [" + JoinEscaped(info.document.tags, ", ") + "]";
        }
        return notes + (info.document.description.empty() ? "" : "  " + EscapePath(info.document.description));
    }

    CFilterOptions filter_;
};

}  // namespace

std::unique_ptr<ICommand> MakeCheckpointsCommand() { return std::make_unique<CCheckpointsCommand>(); }

}  // namespace agent
