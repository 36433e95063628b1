#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/JsonForms.h"
#include "agent/run/SetDocument.h"
#include "cloudbackuplib/CloudBackupSession.h"

namespace agent {

namespace {

namespace backup = cloudbackuplib::backup;

class CCheckpointsCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        return app.add_subcommand("checkpoints", "List the checkpoints of the set");
    }

    int Run(const SSettings& settings) override {
        auto repository = COpenedRepository::Open4Read(settings.repository);
        const auto cloudBackup = repository.OpenBackup4Read();
        const auto session =
            backup::CCloudBackupSession::StartSession(cloudBackup, cloudBackup->GetLastCheckpointId(), true);
        if (settings.output == EOutput::text) {
            PrintLine("    ID  TIME                  HOST              FILES        SIZE      STORED  FOLDERS");
        }
        for (const auto& checkpoint : session->EnumCheckpoints()) {
            const auto document = SSetDocument::FromText(checkpoint->GetDxr().GetContent());
            if (settings.output == EOutput::json) {
                PrintJson(CheckpointToJson(checkpoint->GetId(), document));
            } else if (settings.output == EOutput::text) {
                PrintRow(checkpoint->GetId(), document);
            }
        }
        return exitDone;
    }

private:
    static void PrintRow(unsigned long id, const SSetDocument& document) {
        std::uint64_t files = 0;
        std::uint64_t bytes = 0;
        std::uint64_t stored = 0;
        std::string paths;
        for (const auto& root : document.roots) {
            files += root.statistics.files;
            bytes += root.statistics.bytes;
            // What a root that was carried on stored belongs to the checkpoint that read it.
            stored += root.checkpoint == id ? root.statistics.storedBytes : 0;
            paths += (paths.empty() ? "" : ", ") + EscapePath(root.path);
        }
        std::array<char, 160> row{};
        std::snprintf(row.data(), row.size(), "%6lu  %s  %-14.14s %8s %11s %11s  ", id,
                      ToIsoText(document.started).c_str(), EscapePath(document.host).c_str(),
                      FormatCount(files).c_str(), FormatBytes(bytes).c_str(), FormatBytes(stored).c_str());
        PrintLine(row.data() + paths);
    }
};

}  // namespace

std::unique_ptr<ICommand> MakeCheckpointsCommand() { return std::make_unique<CCheckpointsCommand>(); }

}  // namespace agent
