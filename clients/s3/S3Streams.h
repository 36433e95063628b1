#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "clients/http/ReadAhead.h"
#include "clients/s3/S3Multipart.h"
#include "cloudclientlib/CloudRecords.h"
#include "cloudclientlib/WorkerPool.h"

namespace clients::s3 {

/// Reads one version of an object by ranges, the next one on its way while one is read: memory for two of them.
class CS3Download : public cloudclientlib::IDownloadStream {
public:
    CS3Download(std::shared_ptr<CS3Connection> connection, std::shared_ptr<task::CWorkerPool> workers, SPlace place);
    std::size_t Read(std::span<char> buffer) override { return reader_.Read(buffer); }

private:
    http::CReadAhead reader_;
};

/// Uploads in parts as the bytes come, or, when there are few, with one request: memory for five parts.
class CS3Upload : public cloudclientlib::IUploadStream {
public:
    using headers_t = CMultipartUpload::headers_t;

    CS3Upload(std::shared_ptr<CS3Connection> connection, SPlace place, std::uint64_t size, const SMultipartSizes& sizes,
              headers_t headers);
    void Write(std::span<const char> data) override;
    void Finish() override;

private:
    [[noreturn]] void Refuse(const char* reason);

    const std::shared_ptr<CS3Connection> connection_;
    const SPlace place_;
    const std::uint64_t size_;
    const std::uint64_t partSize_;
    const headers_t headers_;
    std::uint64_t taken_ = 0;
    http::buffer_ptr part_;
    std::unique_ptr<CMultipartUpload> upload_;
    bool isClosed_ = false;
};

/// Writes a whole object with one request.
void PutObject(CS3Connection& connection, const SPlace& place, const http::buffer_ptr& data,
               const CMultipartUpload::headers_t& headers);

}  // namespace clients::s3
