#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/EntryForms.h"
#include "agent/run/OpenedCheckpoint.h"
#include "agent/select/PathScope.h"

namespace agent {

namespace {

class CLsCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("ls", "List what a checkpoint holds");
        AddCheckpointArgument(*command, checkpoint_);
        command->add_option("PATH", paths_, "Only what lies at or under these paths");
        command->add_flag("--human-readable", humanSizes_, "Sizes as 12.3 MiB");
        command->add_flag("--names-only", namesOnly_, "Paths alone");
        return command;
    }

    int Run(const SSettings& settings) override {
        COpenedCheckpoint checkpoint(settings.repository, checkpoint_);
        std::vector<std::string> wanted;
        for (const auto& path : paths_) {
            wanted.push_back(CleanPath(path));
        }
        if (wanted.empty()) {
            wanted.emplace_back();
        }
        std::vector<bool> found(wanted.size(), paths_.empty());
        for (const auto& root : checkpoint.GetDocument().roots) {
            ListRoot(settings.output, checkpoint, root, wanted, found);
        }
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            if (!found[i]) {
                throw exc::CRuntimeExc("Checkpoint %1 holds nothing at '%2'", checkpoint.GetId(),
                                       EscapePath(wanted[i]));
            }
        }
        return exitDone;
    }

private:
    void ListRoot(EOutput output, COpenedCheckpoint& checkpoint, const SRoot& root,
                  const std::vector<std::string>& wanted, std::vector<bool>& found) const {
        std::optional<CMetaState> state;
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            const auto begin = PathInRoot(root.path, wanted[i]);
            if (!begin) {
                continue;
            }
            if (!state) {
                state = checkpoint.LoadMetadata(root);
            }
            for (const auto& [path, packed] : state->EntriesAt(*begin)) {
                found[i] = true;
                PrintEntry(output, FullPath(root.path, path), packed.Unpack(), root.path);
            }
        }
    }

    void PrintEntry(EOutput output, const std::string& path, const SEntry& entry, const std::string& root) const {
        if (output == EOutput::json) {
            PrintJson(EntryToJson("entry", path, entry, root));
        } else if (output == EOutput::text && namesOnly_) {
            PrintLine(EscapePath(path));
        } else if (output == EOutput::text) {
            PrintLine(EntryColumns(entry, humanSizes_) + " " + EscapePath(path) + LinkText(entry, root));
        }
    }

    std::string checkpoint_;
    std::vector<std::string> paths_;
    bool humanSizes_ = false;
    bool namesOnly_ = false;
};

}  // namespace

std::unique_ptr<ICommand> MakeLsCommand() { return std::make_unique<CLsCommand>(); }

}  // namespace agent
