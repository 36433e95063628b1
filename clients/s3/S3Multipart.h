#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "clients/s3/S3Objects.h"

namespace clients::s3 {

/// Part sizes of large objects, in bytes.
struct SMultipartSizes {
    /// An object that is larger is uploaded in parts.
    std::uint64_t threshold = 16U << 20U;
    /// Grown for objects that would have more parts than the protocol allows. At least 5 MiB by the protocol.
    std::uint64_t part = 8U << 20U;
    /// The largest object that one request copies.
    std::uint64_t largestCopy = std::uint64_t{5} << 30U;

    [[nodiscard]] std::uint64_t PartSizeFor(std::uint64_t objectSize) const;
};

/// An upload in parts: the object appears, whole, when Complete succeeds; let go before that, the upload is aborted and
/// leaves nothing. For one thread; several parts are on their way at once.
class CMultipartUpload {
public:
    using headers_t = std::vector<std::pair<std::string, std::string>>;

    CMultipartUpload(std::shared_ptr<CS3Connection> connection, SPlace place, const headers_t& headers);
    CMultipartUpload(const CMultipartUpload&) = delete;
    CMultipartUpload& operator=(const CMultipartUpload&) = delete;
    ~CMultipartUpload();

    /// Starts the next part; waits while too many are on their way. Throws the failure of an earlier part.
    void AddPart(http::buffer_ptr data);
    /// The next part is a range of another object.
    void AddCopiedPart(const std::string& sourceHeader, std::uint64_t offset, std::uint64_t size);
    void Complete();

private:
    struct SPart;

    void Start(SRequest request, bool copied);
    void WaitForOne();
    void Abort() noexcept;

    const std::shared_ptr<CS3Connection> connection_;
    const SPlace place_;
    std::string uploadId_;
    std::vector<std::string> etags_;
    std::vector<std::unique_ptr<SPart>> onTheirWay_;
    std::size_t started_ = 0;
    bool isOpen_ = true;
};

}  // namespace clients::s3
