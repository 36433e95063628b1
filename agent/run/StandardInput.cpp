#include "agent/run/StandardInput.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <vector>

#include "agent/run/SourceBackup.h"
#include "common/exc.h"
#include "common/posix.h"

namespace agent {

namespace {

constexpr std::size_t bufferSize = std::size_t{1} << 20U;
constexpr std::uint32_t fileMode = 0600;

/// What a command writes. The command is waited for in any case.
class CCommandOutput {
public:
    explicit CCommandOutput(const std::string& command) : command_(command), pipe_(::popen(command.c_str(), "re")) {
        if (pipe_ == nullptr) {
            throw posix::CPosixExc("run", command, errno);
        }
    }
    CCommandOutput(const CCommandOutput&) = delete;
    CCommandOutput& operator=(const CCommandOutput&) = delete;
    ~CCommandOutput() {
        if (pipe_ != nullptr) {
            ::pclose(pipe_);
        }
    }

    [[nodiscard]] int GetFd() const { return ::fileno(pipe_); }
    void Finish() {
        const int status = ::pclose(pipe_);
        pipe_ = nullptr;
        if (WIFSIGNALED(status)) {
            throw exc::CRuntimeExc("The command '%1' was ended by signal %2: nothing was saved", command_,
                                   WTERMSIG(status));
        }
        if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
            throw exc::CRuntimeExc("The command '%1' ended with exit code %2: nothing was saved", command_,
                                   WEXITSTATUS(status));
        }
    }

private:
    const std::string command_;
    FILE* pipe_;
};

std::size_t ReadSome(int fd, std::vector<char>& buffer) {
    for (;;) {
        const ssize_t size = ::read(fd, buffer.data(), buffer.size());
        if (size >= 0) {
            return static_cast<std::size_t>(size);
        }
        if (errno != EINTR) {
            throw posix::CPosixExc("read", "standard input", errno);
        }
    }
}

void ReadToEnd(int fd, SEntry& entry, CChunkStream& stream, CProgressCounter& progress) {
    std::vector<char> buffer(bufferSize);
    stream.Cut();
    for (std::size_t size = ReadSome(fd, buffer); size > 0; size = ReadSome(fd, buffer)) {
        AppendSegment(entry, {entry.size, stream.GetPosition(), size});
        stream.Append({buffer.data(), size});
        entry.size += size;
        progress.SetRead(entry.size);
    }
    stream.Cut();
}

SEntry NewEntry() {
    SEntry entry;
    entry.mode = fileMode;
    entry.uid = ::getuid();
    entry.gid = ::getgid();
    entry.mtime = Now();
    entry.ctime = entry.mtime;
    return entry;
}

}  // namespace

SMetaChanges ReadInput(const SInputOptions& input, const CMetaState& known, CChunkStream& stream,
                       CProgressCounter& progress, SRootStatistics& statistics) {
    SEntry entry = NewEntry();
    progress.Begin(input.path, "");
    if (input.command.empty()) {
        ReadToEnd(input.fd, entry, stream, progress);
    } else {
        CCommandOutput output(input.command);
        ReadToEnd(output.GetFd(), entry, stream, progress);
        output.Finish();
    }
    progress.EndFile(entry.size);

    SMetaChanges changes;
    for (const auto& [path, packed] : known.GetEntries()) {
        if (!path.empty()) {
            changes.removed.emplace(path);
        }
    }
    changes.Put("", entry);
    statistics.files = 1;
    statistics.bytes = entry.size;
    statistics.filesRead = 1;
    statistics.bytesRead = entry.size;
    ++(known.Find("") ? statistics.changed : statistics.added);
    statistics.removed = changes.removed.size();
    return changes;
}

}  // namespace agent
