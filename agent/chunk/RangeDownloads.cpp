#include "agent/chunk/RangeDownloads.h"

#include <utility>

#include "agent/chunk/ChunkCheck.h"

namespace agent {

namespace {

constexpr std::uint64_t mostBytesAhead = 32U << 20U;

std::shared_ptr<SRangeDownload> Begin(const SChunkSource& source, const SReadRange& range) {
    auto download = std::make_shared<SRangeDownload>();
    download->range = range;
    download->bytes = std::make_shared<cnt::array_t<char>>();
    try {
        download->task = source.client->DownloadFileAsync(GetBlockPath(source, range.block), download->bytes,
                                                          range.offset, range.size);
    } catch (...) {
        download->failure = std::current_exception();
    }
    return download;
}

void WaitFor(SRangeDownload& download) {
    try {
        if (download.task) {
            download.task->Wait();
        }
    } catch (...) {
        download.failure = std::current_exception();
    }
}

}  // namespace

std::shared_ptr<const SRangeDownload> DownloadChunk(const SChunkSource& source, const SChunk& chunk) {
    const auto download = Begin(source, {chunk.block, chunk.blockOffset, chunk.storedSize, 0, 0});
    WaitFor(*download);
    return download;
}

CRangeDownloads::CRangeDownloads(const SChunkSource& source, std::span<const SChunk> wanted, std::size_t limit)
    : source_(source), wanted_(wanted), limit_(limit) {}

CRangeDownloads::~CRangeDownloads() {
    for (const auto& download : ahead_) {
        WaitFor(*download);  // nobody wants it any more
    }
}

CRangeDownloads::range_ptr CRangeDownloads::Wait(std::size_t index) {
    if (current_ && index < current_->range.last) {
        return current_;
    }
    do {
        current_ = nullptr;
        StartAhead();
        current_ = TakeNext();
    } while (index >= current_->range.last);  // a range that nobody asked for
    StartAhead();
    return current_;
}

CRangeDownloads::range_ptr CRangeDownloads::TakeNext() {
    const std::shared_ptr<SRangeDownload> next = ahead_.front();
    WaitFor(*next);
    ahead_.pop_front();
    bytesAhead_ -= next->range.size;
    return next;
}

void CRangeDownloads::StartAhead() {
    while (ahead_.size() < limit_) {
        SkipUnsound();
        if (planned_ == wanted_.size()) {
            return;
        }
        const SReadRange range = PlanRange(wanted_, planned_, source_.blocks);
        if (!ahead_.empty() && bytesAhead_ + range.size > mostBytesAhead) {
            return;
        }
        Start(range);
    }
}

void CRangeDownloads::SkipUnsound() {
    while (planned_ < wanted_.size() && !FindChunkFault(wanted_[planned_], source_.blocks).empty()) {
        ++planned_;
    }
}

void CRangeDownloads::Start(const SReadRange& range) {
    ahead_.push_back(Begin(source_, range));
    bytesAhead_ += range.size;
    planned_ = range.last;
}

}  // namespace agent
