#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <mutex>
#include <vector>

#include "agent/chunk/BlockWriter.h"
#include "cloudclientlib/WorkerPool.h"

namespace agent {

/// Uploads blocks, several at once, and remembers what became of each.
///
/// Called from one thread. At most `limit` blocks are at work, each on a thread that mostly waits; Put blocks while
/// that many are. The first failure (by number among those that failed) is thrown by the next call; blocks that come
/// later are not begun. The destructor waits for what is at work.
class CBlockUploader {
public:
    using buffer_ptr = CBlockWriter::buffer_ptr;

    CBlockUploader(SBlockTarget target, std::size_t limit);

    /// An empty buffer: one of an uploaded block, where there is one.
    [[nodiscard]] buffer_ptr TakeBuffer();
    /// The next block.
    void Put(buffer_ptr block);
    void ThrowIfFailed();
    /// Waits for all blocks and gives them in order.
    [[nodiscard]] std::vector<SWrittenBlock> Finish();
    /// Waits for everything at work, whatever comes of it.
    void WaitAll() noexcept;
    /// How many blocks were put.
    [[nodiscard]] std::size_t GetCount() const { return count_; }

private:
    void Upload(std::size_t number, buffer_ptr block);
    void SetDone(std::size_t number, const SWrittenBlock& written, buffer_ptr block);
    void SetFailed(std::size_t number, std::exception_ptr failure);

    const std::size_t limit_;
    CBlockWriter writer_;
    std::size_t count_ = 0;  // the caller's
    std::atomic<bool> hasFailed_ = false;

    std::mutex mutex_;
    std::condition_variable oneDone_;
    std::size_t atWork_ = 0;              // guarded by mutex_
    std::vector<SWrittenBlock> written_;  // guarded by mutex_; by number
    std::vector<buffer_ptr> buffers_;     // guarded by mutex_; of blocks that are done
    std::exception_ptr failure_;          // guarded by mutex_
    std::size_t failedNumber_ = 0;        // guarded by mutex_

    task::CWorkerPool workers_;  // last: gone before what its jobs use
};

}  // namespace agent
