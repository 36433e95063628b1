#include <algorithm>
#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/cli/EntryForms.h"
#include "agent/cli/FilterOptions.h"
#include "agent/look/FindRun.h"
#include "agent/look/Versions.h"

namespace agent {

namespace {

class CFindCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("find", "Find files across checkpoints, by name or path");
        command->footer(
            "A pattern without '/' is for names, one that begins with '/' for whole paths, any other for the end of a\n"
            "path. '*', '?' and '[a-z]' do not match '/'; '**' stands for any folders.");
        command->add_option("PATTERN", patterns_, "What to look for")->required();
        command->add_flag("-i,--ignore-case", ignoreCase_, "Upper and lower case are the same");
        command
            ->add_option("--type", types_,
                         "Only of this type (several times: of any of them): file, folder, symlink, hardlink,\n"
                         "fifo, chardevice, blockdevice, or a letter of fdlhpcb")
            ->type_name("TYPE")
            ->expected(1)
            ->take_all();
        command->add_option("--newer", newer_, "Only modified from then on: 2026-11-21, 2026-11-21T08:15:00 (UTC)")
            ->type_name("TIME");
        command->add_option("--older", older_, "Only modified up to then; a day counts whole")->type_name("TIME");
        command->add_option("--size", size_, "Only files of +10M (at least), -1K (at most), 517 (exactly) bytes")
            ->type_name("SIZE");
        command->add_option("--checkpoint", checkpoints_, "Only in this checkpoint (several times: in any of them)")
            ->type_name("ID")
            ->expected(1)
            ->take_all();
        filter_.AddTo(*command);
        return command;
    }

    int Run(const SSettings& settings) override {
        const SEntryFilter filter = MakeFilter();
        const CPathPatterns patterns(patterns_, ignoreCase_);
        const SCheckpointFilter checkpointFilter = filter_.MakeFilter();
        auto repository = COpenedRepository::Open4Read(settings.repository);
        const auto cloudBackup = repository.OpenBackup4Read();
        const auto chosen = Choose(checkpointFilter, Named(ListCheckpoints(repository, *cloudBackup)));
        if (chosen.empty()) {
            throw exc::CRuntimeExc("There is no such checkpoint to look into");
        }
        COpenedCheckpoint opened(std::move(repository), cloudBackup, std::to_string(chosen.back().id));
        FindEntries(opened, chosen, patterns, filter, [&](const auto& root, const auto& path, const auto& versions) {
            Print(settings.output, root, path, versions);
        });
        return exitDone;
    }

private:
    SEntryFilter MakeFilter() const {
        SEntryFilter filter;
        for (const auto& name : types_) {
            const auto type = TypeOfName(name);
            if (!type) {
                throw CWrongUseExc("'%1' is no type of file", name);
            }
            filter.types.insert(*type);
        }
        filter.newer = TimeOption(newer_, false);
        filter.older = TimeOption(older_, true);
        try {
            if (!size_.empty()) {
                filter.size = ParseSizeRange(size_);
            }
        } catch (const exc::CExc& failure) {
            throw CWrongUseExc(failure.GetMessage());
        }
        return filter;
    }

    /// Those that --checkpoint names, or all.
    std::vector<SCheckpointInfo> Named(std::vector<SCheckpointInfo> list) const {
        if (checkpoints_.empty()) {
            return list;
        }
        std::vector<std::string> wanted = checkpoints_;
        if (!list.empty()) {
            std::replace(wanted.begin(), wanted.end(), std::string("latest"), std::to_string(list.back().id));
        }
        for (const auto& id : wanted) {
            if (std::none_of(list.begin(), list.end(), [&](const auto& i) { return std::to_string(i.id) == id; })) {
                throw exc::CRuntimeExc("There is no checkpoint %1", id);
            }
        }
        std::erase_if(list, [&](const auto& info) {
            return std::find(wanted.begin(), wanted.end(), std::to_string(info.id)) == wanted.end();
        });
        return list;
    }

    static void Print(EOutput output, const std::string& root, const std::string& path,
                      const std::vector<SFound>& versions) {
        if (output == EOutput::text) {
            PrintLine(EscapePath(path));
        }
        for (const auto& version : versions) {
            if (output == EOutput::json) {
                nlohmann::json value = EntryToJson("match", path, version.entry, root);
                value["checkpoints"] = version.checkpoints;
                PrintJson(value);
            } else if (output == EOutput::text) {
                PrintLine("    " + EntryColumns(version.entry, false) + "  in " + FormatIds(version.checkpoints) +
                          LinkText(version.entry, root));
            }
        }
    }

    std::vector<std::string> patterns_;
    std::vector<std::string> types_;
    std::vector<std::string> checkpoints_;
    std::string newer_;
    std::string older_;
    std::string size_;
    bool ignoreCase_ = false;
    CFilterOptions filter_;
};

}  // namespace

std::unique_ptr<ICommand> MakeFindCommand() { return std::make_unique<CFindCommand>(); }

}  // namespace agent
