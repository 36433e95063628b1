#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/fs/RestoreTarget.h"
#include "agent/meta/EntryCodec.h"
#include "cloudclientlib/WorkerPool.h"

namespace agent {

/// Writes small files on worker threads: making a file costs more than its bytes.
///
/// Used by one thread, which hands over what belongs together and takes back what came of it. No more than some MiB
/// wait at a time: Submit waits then. The destructor waits for what is at work.
class CSmallFiles {
public:
    struct SFile {
        std::size_t index = 0;  ///< the caller's
        std::string path;       ///< in the target
        CPackedView entry;
        std::uint64_t fileOffset = 0;
        std::size_t begin = 0;  ///< in the batch's bytes
        std::size_t length = 0;
        /// Why it could not be written; empty when it was.
        std::string failure;
        /// Which attribute could not be set, of a file that was written; empty for none.
        std::string attributeFault;
    };
    /// The most files of a batch: what is known of each takes more memory than the bytes of the smallest.
    static constexpr std::size_t batchFiles = 1024;
    struct SBatch {
        std::vector<char> bytes;
        std::vector<SFile> files;
        task::task_ptr done;
    };

    CSmallFiles(const CRestoreTarget& target, std::size_t threads);
    CSmallFiles(const CSmallFiles&) = delete;
    CSmallFiles& operator=(const CSmallFiles&) = delete;
    ~CSmallFiles();

    [[nodiscard]] bool IsFull() const { return batches_.size() >= limit_; }
    [[nodiscard]] bool IsEmpty() const { return batches_.empty(); }
    void Submit(std::unique_ptr<SBatch> batch);
    /// The oldest batch, done; not when empty.
    [[nodiscard]] std::unique_ptr<SBatch> TakeOldest();

private:
    void Write(SBatch& batch, std::size_t worker);

    const std::size_t limit_;
    std::vector<CRestoreTarget> targets_;  // each one its worker's
    std::deque<std::unique_ptr<SBatch>> batches_;
    task::CWorkerPool workers_;  // last: gone before what its jobs use
};

}  // namespace agent
