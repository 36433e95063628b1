#include "clients/azure/AzureStreams.h"

#include <algorithm>

#include "clients/http/ReadAhead.h"
#include "cloudclientlib/CloudExc.h"
#include "common/md5_stream.h"

namespace clients::azure {

namespace {

using cloudclientlib::CCloudExc;
using cloudclientlib::EFailure;

/// How often a range is asked for, and how long is waited before the second time.
constexpr unsigned attempts = 3;
constexpr std::chrono::milliseconds firstRetryDelay(250);
/// A service that asks for more of it is left to the caller.
constexpr std::chrono::milliseconds longestRetryDelay = std::chrono::seconds(10);

/// What the ranges of a download have in common; used by one of them at a time.
struct SDownload {
    std::shared_ptr<CAzureConnection> connection;
    SPlace place;
    wait_t wait;
    SObjectState state;
    digest::CMd5 md5 = {};

    void Fetch(std::uint64_t offset, std::uint64_t size, const http::buffer_ptr& buffer) {
        ReadPatiently(offset, size, buffer);
        if (!state.md5) {
            return;
        }
        md5.Update(*buffer);
        if (offset + size == state.size && md5.Finish() != *state.md5) {
            ThrowWrongBytes(place);
        }
    }

    void ReadPatiently(std::uint64_t offset, std::uint64_t size, const http::buffer_ptr& buffer) const {
        std::chrono::milliseconds delay = firstRetryDelay;
        for (unsigned attempt = 1;; ++attempt) {
            std::chrono::milliseconds asked(0);
            try {
                Read(offset, size, buffer);
                return;
            } catch (const CCloudExc& failure) {
                asked = failure.GetRetryAfter();
                if (attempt == attempts || failure.GetKind() != EFailure::transient || asked > longestRetryDelay) {
                    throw;
                }
            }
            wait(std::max(delay, asked));
            delay *= 4;
        }
    }

    void Read(std::uint64_t offset, std::uint64_t size, const http::buffer_ptr& buffer) const {
        ReadRange(*connection, place, offset, size, buffer, state.etag);
        if (buffer->size() != size) {
            throw CCloudExc({EFailure::corrupt, true, place.operation, place.path,
                             "the service sent fewer bytes than the object has"});
        }
    }
};

}  // namespace

std::shared_ptr<cloudclientlib::IDownloadStream> StartDownload(const std::shared_ptr<CAzureConnection>& connection,
                                                               const std::shared_ptr<task::CWorkerPool>& workers,
                                                               const SPlace& place, const wait_t& wait) {
    auto download = std::make_shared<SDownload>(SDownload{connection, place, wait, HeadExc(*connection, place)});
    const std::uint64_t size = download->state.size;
    return std::make_shared<http::CReadAhead>(
        workers, size, [download](std::uint64_t offset, std::uint64_t count, const http::buffer_ptr& buffer) {
            download->Fetch(offset, count, buffer);
        });
}

struct CAzureUpload::SBlocks {
    CBlockUpload upload;
    digest::CMd5 md5 = {};
};

CAzureUpload::CAzureUpload(std::shared_ptr<CAzureConnection> connection, SPlace place, std::uint64_t size,
                           const SBlockSizes& sizes, headers_t headers)
    : connection_(std::move(connection)),
      place_(std::move(place)),
      size_(size),
      blockSize_(size > sizes.threshold ? sizes.BlockSizeFor(size) : sizes.threshold),
      headers_(std::move(headers)),
      block_(std::make_shared<cnt::array_t<char>>()) {}

CAzureUpload::~CAzureUpload() = default;

void CAzureUpload::Refuse(const char* reason) {
    isClosed_ = true;
    blocks_.reset();
    throw CCloudExc({EFailure::other, false, place_.operation, place_.path, reason});
}

void CAzureUpload::AddBlock() {
    if (!blocks_) {
        // An aggregate, which make_unique of this standard cannot make.
        blocks_.reset(new SBlocks{{connection_, place_, headers_}});  // NOLINT(modernize-make-unique)
    }
    blocks_->md5.Update(*block_);
    blocks_->upload.AddBlock(std::move(block_));
    block_ = std::make_shared<cnt::array_t<char>>();
}

void CAzureUpload::Write(std::span<const char> data) {
    if (isClosed_) {
        Refuse("the upload is over");
    }
    if (data.size() > size_ - taken_) {
        Refuse("more bytes than announced");
    }
    while (!data.empty()) {
        const std::size_t count = std::min<std::uint64_t>(data.size(), blockSize_ - block_->size());
        if (block_->empty()) {
            block_->reserve(std::min(blockSize_, size_ - taken_));
        }
        block_->insert(block_->end(), data.begin(), data.begin() + static_cast<std::ptrdiff_t>(count));
        data = data.subspan(count);
        taken_ += count;
        if (block_->size() == blockSize_ && taken_ < size_) {
            AddBlock();
        }
    }
}

void CAzureUpload::Finish() {
    if (isClosed_) {
        Refuse("the upload is over");
    }
    if (taken_ != size_) {
        Refuse("fewer bytes than announced");
    }
    isClosed_ = true;
    if (!blocks_) {
        PutObject(*connection_, place_, block_, headers_);
        return;
    }
    AddBlock();
    blocks_->upload.Complete(blocks_->md5.Finish());
}

}  // namespace clients::azure
