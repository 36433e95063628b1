#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "clients/azure/AzureBlocks.h"
#include "cloudclientlib/CloudRecords.h"
#include "cloudclientlib/WorkerPool.h"

namespace clients::azure {

/// Lets the time pass before something is tried again.
using wait_t = std::function<void(std::chrono::milliseconds)>;

/// Reads one version of an object by ranges, the next one on its way while one is read: memory for two of them. A range
/// whose transfer failed in passing is tried again, since it is pinned to the version. The last range is given out only
/// when the whole is what was recorded.
[[nodiscard]] std::shared_ptr<cloudclientlib::IDownloadStream> StartDownload(
    const std::shared_ptr<CAzureConnection>& connection, const std::shared_ptr<task::CWorkerPool>& workers,
    const SPlace& place, const wait_t& wait);

/// Uploads in blocks as the bytes come, or, when there are few, with one request: memory for five blocks.
class CAzureUpload : public cloudclientlib::IUploadStream {
public:
    CAzureUpload(std::shared_ptr<CAzureConnection> connection, SPlace place, std::uint64_t size,
                 const SBlockSizes& sizes, headers_t headers);
    ~CAzureUpload() override;
    void Write(std::span<const char> data) override;
    void Finish() override;

private:
    [[noreturn]] void Refuse(const char* reason);
    void AddBlock();

    const std::shared_ptr<CAzureConnection> connection_;
    const SPlace place_;
    const std::uint64_t size_;
    const std::uint64_t blockSize_;
    const headers_t headers_;
    std::uint64_t taken_ = 0;
    http::buffer_ptr block_;
    struct SBlocks;
    std::unique_ptr<SBlocks> blocks_;
    bool isClosed_ = false;
};

}  // namespace clients::azure
