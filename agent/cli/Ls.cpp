#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "agent/cli/Command.h"
#include "agent/run/OpenedCheckpoint.h"

namespace agent {

namespace {

struct STypeName {
    EEntryType type;
    char letter;
    const char* name;
};

constexpr std::array<STypeName, 7> typeNames{{
    {EEntryType::directory, 'd', "folder"},
    {EEntryType::file, '-', "file"},
    {EEntryType::symlink, 'l', "symlink"},
    {EEntryType::hardLink, 'h', "hardlink"},
    {EEntryType::fifo, 'p', "fifo"},
    {EEntryType::charDevice, 'c', "chardevice"},
    {EEntryType::blockDevice, 'b', "blockdevice"},
}};

const STypeName& NamesOf(EEntryType type) {
    for (const auto& names : typeNames) {
        if (names.type == type) {
            return names;
        }
    }
    return typeNames[1];
}

std::string ModeText(const SEntry& entry) {
    std::string text(1, NamesOf(entry.type).letter);
    static constexpr std::array<char, 9> letters{'r', 'w', 'x', 'r', 'w', 'x', 'r', 'w', 'x'};
    for (std::size_t i = 0; i < letters.size(); ++i) {
        text += (entry.mode & (0400U >> i)) != 0 ? letters[i] : '-';
    }
    const auto special = [&](std::uint32_t bit, std::size_t at, char set, char setWithoutX) {
        if ((entry.mode & bit) != 0) {
            text[at] = text[at] == 'x' ? set : setWithoutX;
        }
    };
    special(04000, 3, 's', 'S');
    special(02000, 6, 's', 'S');
    special(01000, 9, 't', 'T');
    return text;
}

class CLsCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("ls", "List what a checkpoint holds");
        AddCheckpointArgument(*command, checkpoint_);
        command->add_option("PATH", path_, "Only what lies at or under this path");
        return command;
    }

    int Run(const SSettings& settings) override {
        COpenedCheckpoint checkpoint(settings.repository, checkpoint_);
        while (path_.size() > 1 && path_.back() == '/') {
            path_.pop_back();
        }
        bool found = path_.empty();
        for (const auto& root : checkpoint.GetDocument().roots) {
            found = ListRoot(settings.output, checkpoint, root) || found;
        }
        if (!found) {
            throw exc::CRuntimeExc("Checkpoint %1 holds nothing at '%2'", checkpoint.GetId(), path_);
        }
        return exitDone;
    }

private:
    /// True when anything matched.
    bool ListRoot(EOutput output, COpenedCheckpoint& checkpoint, const SRoot& root) {
        const std::string prefix = root.path == "/" ? "/" : root.path + "/";
        const bool wholeRoot = path_.empty() || path_ == "/" || path_ == root.path || prefix.starts_with(path_ + "/");
        if (!wholeRoot && !path_.starts_with(prefix)) {
            return false;
        }
        const CMetaState state = checkpoint.LoadMetadata(root);
        bool found = false;
        for (const auto& [path, packed] : state.EntriesAt(wholeRoot ? std::string() : path_.substr(prefix.size()))) {
            found = true;
            PrintEntry(output, path.empty() ? root.path : prefix + path, packed.Unpack(), prefix);
        }
        return found;
    }

    static void PrintEntry(EOutput output, const std::string& path, const SEntry& entry, const std::string& prefix) {
        const std::string target = entry.type == EEntryType::hardLink ? prefix + entry.target : entry.target;
        if (output == EOutput::json) {
            nlohmann::json value{{"event", "entry"},
                                 {"path", EscapePath(path)},
                                 {"type", NamesOf(entry.type).name},
                                 {"mode", entry.mode},
                                 {"uid", entry.uid},
                                 {"gid", entry.gid},
                                 {"size", entry.size},
                                 {"mtime", ToIsoText(entry.mtime)}};
            if (!target.empty()) {
                value["target"] = EscapePath(target);
            }
            PrintJson(value);
        } else if (output == EOutput::text) {
            std::array<char, 128> head{};
            std::snprintf(head.data(), head.size(), "%s %5u %5u %12lu %s ", ModeText(entry).c_str(), entry.uid,
                          entry.gid, entry.size, ToIsoText(entry.mtime).c_str());
            PrintLine(head.data() + EscapePath(path) + (target.empty() ? "" : " -> " + EscapePath(target)));
        }
    }

    std::string checkpoint_;
    std::string path_;
};

}  // namespace

std::unique_ptr<ICommand> MakeLsCommand() { return std::make_unique<CLsCommand>(); }

}  // namespace agent
