#pragma once

#include <cstdint>
#include <deque>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "clients/azure/AzureObjects.h"

namespace clients::azure {

/// Block sizes of large objects, in bytes.
struct SBlockSizes {
    /// An object that is larger is uploaded in blocks.
    std::uint64_t threshold = 16U << 20U;
    /// Grown for objects that would have more blocks than the protocol allows. At most 4000 MiB by the protocol.
    std::uint64_t block = 8U << 20U;

    [[nodiscard]] std::uint64_t BlockSizeFor(std::uint64_t objectSize) const;
};

/// An upload in blocks: the object appears, whole, when Complete succeeds. Blocks of an upload that was let go before
/// that are seen by nobody: the service discards them after a week, or at the next upload of the object. For one
/// thread; several blocks are on their way at once.
///
/// Blocks are named uniquely, so that uploads of one object side by side never mix. The service discards the blocks of
/// all others when one completes, or when the object is written with one request: the others then fail with kind
/// conflict, and may be tried again.
class CBlockUpload {
public:
    CBlockUpload(std::shared_ptr<CAzureConnection> connection, SPlace place, headers_t headers);
    CBlockUpload(const CBlockUpload&) = delete;
    CBlockUpload& operator=(const CBlockUpload&) = delete;
    /// Waits for what is on its way.
    ~CBlockUpload();

    /// Starts the next block; waits while too many are on their way. Throws the failure of an earlier block.
    void AddBlock(http::buffer_ptr data);
    /// `md5` is that of the whole object.
    void Complete(const digest::md5_digest_t& md5);

private:
    void WaitForOne();

    const std::shared_ptr<CAzureConnection> connection_;
    const SPlace place_;
    const headers_t headers_;
    const std::string uploadId_;
    std::vector<std::string> ids_;
    std::deque<std::future<http::SHttpResult>> onTheirWay_;
};

}  // namespace clients::azure
