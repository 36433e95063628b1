#include "agent/chunk/RangeDownloads.h"

#include <utility>

#include "agent/chunk/ChunkCheck.h"

namespace agent {

namespace {

constexpr std::uint64_t mostBytesAhead = 32U << 20U;

}  // namespace

CRangeDownloads::CRangeDownloads(const SChunkSource& source, std::span<const SChunk> wanted, std::size_t limit)
    : source_(source), wanted_(wanted), limit_(limit) {}

CRangeDownloads::~CRangeDownloads() {
    for (const auto& download : ahead_) {
        try {
            if (download->task) {
                download->task->Wait();
            }
        } catch (...) {  // nobody wants it any more
        }
    }
}

CRangeDownloads::range_ptr CRangeDownloads::Wait(std::size_t index) {
    if (current_ && index < current_->range.last) {
        return current_;
    }
    current_ = nullptr;
    StartAhead();
    const std::shared_ptr<SRangeDownload> next = ahead_.front();
    try {
        if (next->task) {
            next->task->Wait();
        }
    } catch (...) {
        next->failure = std::current_exception();
    }
    ahead_.pop_front();
    bytesAhead_ -= next->range.size;
    current_ = next;
    StartAhead();
    return current_;
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
    const auto download = std::make_shared<SRangeDownload>();
    download->range = range;
    download->bytes = std::make_shared<cnt::array_t<char>>();
    ahead_.push_back(download);
    bytesAhead_ += range.size;
    planned_ = range.last;
    try {
        download->task = source_.client->DownloadFileAsync(GetBlockPath(source_, range.block), download->bytes,
                                                           range.offset, range.size);
    } catch (...) {
        download->failure = std::current_exception();
    }
}

}  // namespace agent
