#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "clients/http/HttpEngine.h"
#include "cloudclientlib/CloudRecords.h"
#include "cloudclientlib/WorkerPool.h"

namespace clients::http {

/// Reads an object by ranges, the next one on its way while one is read: memory for two of them. For one thread. A
/// range that could not be fetched fails the read that comes to it, and every one after that.
class CReadAhead : public cloudclientlib::IDownloadStream {
public:
    /// Sets the buffer to the bytes of [offset, offset + size), all of them, or throws. Called by the workers, for one
    /// range after the other, perhaps once more after the stream was let go; holds what it works with.
    using fetch_t = std::function<void(std::uint64_t offset, std::uint64_t size, const buffer_ptr& buffer)>;

    /// `size` is the object's, in bytes.
    CReadAhead(std::shared_ptr<task::CWorkerPool> workers, std::uint64_t size, fetch_t fetch);
    std::size_t Read(std::span<char> buffer) override;

private:
    void Fetch();

    const std::shared_ptr<task::CWorkerPool> workers_;
    const std::uint64_t size_;
    const std::shared_ptr<const fetch_t> fetch_;
    std::uint64_t fetched_ = 0;
    buffer_ptr current_;
    std::size_t position_ = 0;
    buffer_ptr next_;
    task::task_ptr nextTask_;
};

}  // namespace clients::http
