#include <cerrno>
#include <cstdio>

#include "agent/cli/Command.h"
#include "agent/look/FileContentReader.h"
#include "agent/run/OpenedCheckpoint.h"
#include "agent/select/PathScope.h"

namespace agent {

namespace {

/// Nothing of a file may be lost in the pipe without a word.
void WriteOut(std::span<const char> bytes) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size()) {
        throw posix::CPosixExc("write", "standard output", errno);
    }
}

void FlushOut() {
    if (std::fflush(stdout) != 0) {
        throw posix::CPosixExc("write", "standard output", errno);
    }
}

class CCatCommand : public ICommand {
public:
    CLI::App* Register(CLI::App& app) override {
        CLI::App* command = app.add_subcommand("cat", "Write one file of a checkpoint to standard output");
        AddCheckpointArgument(*command, checkpoint_);
        command->add_option("PATH", path_, "The file's full path")->required();
        return command;
    }

    int Run(const SSettings& settings) override {
        COpenedCheckpoint checkpoint(settings.repository, checkpoint_);
        const std::string wanted = CleanPath(path_);
        for (const auto& root : checkpoint.GetDocument().roots) {
            const auto path = PathInRoot(root.path, wanted);
            if (path && path->empty() && wanted != root.path) {
                throw exc::CRuntimeExc("'%1' is a folder, not a file", EscapePath(wanted));
            }
            if (path && WriteFile(checkpoint, root, *path)) {
                return exitDone;
            }
        }
        throw exc::CRuntimeExc("Checkpoint %1 holds no file '%2'", checkpoint.GetId(), EscapePath(wanted));
    }

private:
    /// False when nothing bears that path.
    bool WriteFile(COpenedCheckpoint& checkpoint, const SRoot& root, const std::string& path) const {
        const CMetaState state = checkpoint.LoadMetadata(root);
        auto entry = state.Find(path);
        if (entry && entry->type == EEntryType::hardLink) {
            entry = state.Find(entry->target);
        }
        if (!entry) {
            return false;
        }
        if (entry->type != EEntryType::file) {
            throw exc::CRuntimeExc("'%1' is %2, not a file", EscapePath(FullPath(root.path, path)), Describe(*entry));
        }
        ReadFileContent(checkpoint.GetChunkSource(root, state), state, *entry, WriteOut);
        FlushOut();
        return true;
    }

    static std::string Describe(const SEntry& entry) {
        switch (entry.type) {
            case EEntryType::directory:
                return "a folder";
            case EEntryType::symlink:
                return "a link to '" + EscapePath(entry.target) + "'";
            case EEntryType::fifo:
                return "a fifo";
            default:
                return "a device";
        }
    }

    std::string checkpoint_;
    std::string path_;
};

}  // namespace

std::unique_ptr<ICommand> MakeCatCommand() { return std::make_unique<CCatCommand>(); }

}  // namespace agent
