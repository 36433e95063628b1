#pragma once

#include <atomic>

#include "common/export.h"

/// The host's global options. Safe from any thread; a change holds for operations that begin after it.
class CB_EXPORT options_t {
public:
    [[nodiscard]] static options_t& GetInst();

    /// Whole-file storage metadata (checkpoint format version 1, no metadata parts) instead of metadata in parts
    /// (format version 2). Off by default.
    [[nodiscard]] bool IsSingleFileCloudMetadataEnabled() const { return singleFileCloudMetadata_; }
    void EnableSingleFileCloudMetadata(bool enable) { singleFileCloudMetadata_ = enable; }

private:
    std::atomic<bool> singleFileCloudMetadata_{false};
};
