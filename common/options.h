#pragma once

#include <atomic>
#include <cstddef>

#include "common/export.h"

/// The host's global options. Safe from any thread; a change holds for operations that begin after it.
class CB_EXPORT options_t {
public:
    [[nodiscard]] static options_t& GetInst();

    /// Whole-file storage metadata (checkpoint format version 1, no metadata parts) instead of metadata in parts
    /// (format version 2). Off by default.
    [[nodiscard]] bool IsSingleFileCloudMetadataEnabled() const { return singleFileCloudMetadata_; }
    void EnableSingleFileCloudMetadata(bool enable) { singleFileCloudMetadata_ = enable; }

    /// How many deletions of blocks may be in flight at once, never more than the client allows. 1, the default,
    /// deletes one block after another, in order.
    [[nodiscard]] std::size_t GetBlockDeletionConcurrency() const { return blockDeletionConcurrency_; }
    void SetBlockDeletionConcurrency(std::size_t tasks) { blockDeletionConcurrency_ = tasks; }

private:
    std::atomic<bool> singleFileCloudMetadata_{false};
    std::atomic<std::size_t> blockDeletionConcurrency_{1};
};
