#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <span>

#include "agent/chunk/ChunkSource.h"
#include "agent/chunk/ReadPlan.h"
#include "cloudclientlib/ICloudClient.h"

namespace agent {

/// A range of a block, on its way or here.
struct SRangeDownload {
    SReadRange range;
    std::shared_ptr<cnt::array_t<char>> bytes;
    /// Why it did not come.
    std::exception_ptr failure;
    task::task_ptr task;
};

/// One chunk's bytes alone, once they are here (or have failed).
[[nodiscard]] std::shared_ptr<const SRangeDownload> DownloadChunk(const SChunkSource& source, const SChunk& chunk);

/// Downloads the ranges of wanted chunks ahead of their use.
///
/// Keeps up to a number of downloads in flight, and no more bytes than a budget unless one range alone is larger. For
/// one thread; what it gives out may be read by others. The destructor waits for what is in flight.
class CRangeDownloads {
public:
    using range_ptr = std::shared_ptr<const SRangeDownload>;

    /// The chunks and the source outlive the object. `limit` is at least 1.
    CRangeDownloads(const SChunkSource& source, std::span<const SChunk> wanted, std::size_t limit);
    CRangeDownloads(const CRangeDownloads&) = delete;
    CRangeDownloads& operator=(const CRangeDownloads&) = delete;
    ~CRangeDownloads();

    /// The range with that chunk, once it is here (or has failed). Chunks are asked for in order; unsound ones never,
    /// and any other may be left out.
    [[nodiscard]] range_ptr Wait(std::size_t index);

private:
    [[nodiscard]] range_ptr TakeNext();
    void StartAhead();
    void Start(const SReadRange& range);
    void SkipUnsound();

    const SChunkSource& source_;
    const std::span<const SChunk> wanted_;
    const std::size_t limit_;
    std::deque<std::shared_ptr<SRangeDownload>> ahead_;
    std::uint64_t bytesAhead_ = 0;
    std::size_t planned_ = 0;  // chunks before are in ranges that were begun, or unsound
    range_ptr current_;
};

}  // namespace agent
