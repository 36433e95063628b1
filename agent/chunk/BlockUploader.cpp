#include "agent/chunk/BlockUploader.h"

#include <utility>

namespace agent {

CBlockUploader::CBlockUploader(SBlockTarget target, std::size_t limit)
    : limit_(limit), writer_(std::move(target)), workers_(limit) {}

CBlockUploader::buffer_ptr CBlockUploader::TakeBuffer() {
    const std::lock_guard lock(mutex_);
    if (buffers_.empty()) {
        return std::make_shared<cnt::array_t<char>>();
    }
    buffer_ptr buffer = std::move(buffers_.back());
    buffers_.pop_back();
    return buffer;
}

void CBlockUploader::Put(buffer_ptr block) {
    if (count_ == 0) {
        writer_.Open();
    }
    {
        std::unique_lock lock(mutex_);
        oneDone_.wait(lock, [this] { return atWork_ < limit_; });
    }
    ThrowIfFailed();
    {
        const std::lock_guard lock(mutex_);
        written_.emplace_back();
        ++atWork_;
    }
    const std::size_t number = count_++;
    try {
        workers_.Submit([this, number, block = std::move(block)](std::size_t) { Upload(number, block); });
    } catch (...) {
        const std::lock_guard lock(mutex_);
        --atWork_;
        throw;
    }
}

void CBlockUploader::Upload(std::size_t number, buffer_ptr block) {
    std::exception_ptr failure;
    try {
        const SWrittenBlock written = writer_.Write(number, block);
        SetDone(number, written, std::move(block));
        return;
    } catch (...) {
        failure = std::current_exception();
    }
    SetFailed(number, std::move(failure));
}

void CBlockUploader::SetDone(std::size_t number, const SWrittenBlock& written, buffer_ptr block) {
    const std::lock_guard lock(mutex_);
    buffers_.push_back(std::move(block));
    written_[number] = written;
    --atWork_;
    oneDone_.notify_all();
}

void CBlockUploader::SetFailed(std::size_t number, std::exception_ptr failure) {
    const std::lock_guard lock(mutex_);
    if (!failure_ || number < failedNumber_) {
        failure_.swap(failure);
        failedNumber_ = number;
    }
    hasFailed_ = true;
    --atWork_;
    oneDone_.notify_all();
}

void CBlockUploader::ThrowIfFailed() {
    if (!hasFailed_) {
        return;
    }
    WaitAll();
    std::exception_ptr failure;
    {
        const std::lock_guard lock(mutex_);
        failure = failure_;
    }
    std::rethrow_exception(failure);
}

std::vector<SWrittenBlock> CBlockUploader::Finish() {
    WaitAll();
    ThrowIfFailed();
    const std::lock_guard lock(mutex_);
    return std::exchange(written_, {});
}

void CBlockUploader::WaitAll() noexcept {
    std::unique_lock lock(mutex_);
    oneDone_.wait(lock, [this] { return atWork_ == 0; });
}

}  // namespace agent
