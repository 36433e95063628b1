#include "clients/http/ReadAhead.h"

#include <algorithm>

namespace clients::http {

namespace {

/// What is asked for at a time.
constexpr std::uint64_t fetchSize = 4U << 20U;

}  // namespace

CReadAhead::CReadAhead(std::shared_ptr<task::CWorkerPool> workers, std::uint64_t size, fetch_t fetch)
    : workers_(std::move(workers)),
      size_(size),
      fetch_(std::make_shared<const fetch_t>(std::move(fetch))),
      current_(std::make_shared<cnt::array_t<char>>()) {
    Fetch();
}

void CReadAhead::Fetch() {
    nextTask_.reset();
    if (fetched_ >= size_) {
        return;
    }
    next_ = std::make_shared<cnt::array_t<char>>();
    const std::uint64_t offset = fetched_;
    const std::uint64_t size = std::min(fetchSize, size_ - fetched_);
    fetched_ += size;
    nextTask_ = workers_->Submit(
        [fetch = fetch_, buffer = next_, offset, size](std::size_t) { (*fetch)(offset, size, buffer); });
}

std::size_t CReadAhead::Read(std::span<char> buffer) {
    if (position_ == current_->size() && nextTask_ && !buffer.empty()) {
        nextTask_->Wait();
        current_ = std::move(next_);
        position_ = 0;
        Fetch();
    }
    const std::size_t count = std::min(buffer.size(), current_->size() - position_);
    std::copy_n(current_->data() + position_, count, buffer.data());
    position_ += count;
    return count;
}

}  // namespace clients::http
