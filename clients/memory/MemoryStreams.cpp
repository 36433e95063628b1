#include "clients/memory/MemoryStreams.h"

#include <algorithm>

#include "cloudclientlib/CloudExc.h"

namespace clients {

CMemoryDownload::CMemoryDownload(CMemoryStore::content_ptr content) : content_(std::move(content)) {}

std::size_t CMemoryDownload::Read(std::span<char> buffer) {
    const std::size_t count = std::min(buffer.size(), content_->size() - position_);
    std::copy_n(content_->data() + position_, count, buffer.begin());
    position_ += count;
    return count;
}

CMemoryUpload::CMemoryUpload(std::shared_ptr<CMemoryStore> store, SMemoryPath path, std::uint64_t size)
    : store_(std::move(store)), path_(std::move(path)), size_(size) {}

void CMemoryUpload::Write(std::span<const char> data) {
    if (isClosed_) {
        Refuse("the upload is over");
    }
    if (data.size() > size_ - content_.size()) {
        isClosed_ = true;
        Refuse("more bytes than announced");
    }
    content_.insert(content_.end(), data.begin(), data.end());
}

void CMemoryUpload::Finish() {
    if (isClosed_) {
        Refuse("the upload is over");
    }
    isClosed_ = true;
    if (content_.size() != size_) {
        Refuse("fewer bytes than announced");
    }
    store_->Put(path_, std::make_shared<const CMemoryStore::content_t>(std::move(content_)));
}

void CMemoryUpload::Refuse(const char* reason) const {
    throw cloudclientlib::CCloudExc({cloudclientlib::EFailure::other, false, path_.operation, path_.given, reason});
}

}  // namespace clients
