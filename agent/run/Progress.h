#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

namespace agent {

/// How far a run is.
struct SProgress {
    /// What is counted besides bytes; the one word for one of them.
    std::string_view thing = "file";
    /// The full path that is being looked at or read.
    std::string currentPath;
    std::uint64_t filesDone = 0;
    /// Of the files (or other things) done, read or not, and what has been read of the current one.
    std::uint64_t bytesDone = 0;
    /// What the last checkpoint makes one expect: a run may do more, or less.
    std::uint64_t filesTotal = 0;
    std::uint64_t bytesTotal = 0;
    std::uint64_t errors = 0;
    /// Whether there is anything to expect from; the totals are 0 when not.
    bool totalsKnown = false;

    bool operator==(const SProgress&) const = default;
};

/// Is told at each file's end and at least at every MiB read, in the run's thread; returns quickly.
using progress_sink_t = std::function<void(const SProgress&)>;

/// Counts a run's progress and tells the sink, if there is one. For one thread.
class CProgressCounter {
public:
    explicit CProgressCounter(progress_sink_t sink) : sink_(std::move(sink)) {}

    void SetTotals(std::uint64_t files, std::uint64_t bytes) {
        progress_.filesTotal = files;
        progress_.bytesTotal = bytes;
        progress_.totalsKnown = true;
    }
    void Begin(const std::string& root, const std::string& path) {
        if (sink_) {
            progress_.currentPath.assign(root);
            if (!path.empty()) {
                progress_.currentPath.append(root == "/" ? "" : "/").append(path);
            }
            fileBegin_ = progress_.bytesDone;
        }
    }
    /// So much of the current file has been dealt with.
    void SetRead(std::uint64_t bytes) {
        progress_.bytesDone = fileBegin_ + bytes;
        Tell();
    }
    void EndFile(std::uint64_t size) {
        ++progress_.filesDone;
        SetRead(size);
        fileBegin_ = progress_.bytesDone;
    }
    void AddError() { ++progress_.errors; }

private:
    void Tell() const {
        if (sink_) {
            sink_(progress_);
        }
    }

    const progress_sink_t sink_;
    SProgress progress_;
    std::uint64_t fileBegin_ = 0;
};

}  // namespace agent
