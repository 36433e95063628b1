#pragma once

#include <memory>
#include <string>

#include "clients/directory/Store.h"
#include "cloudclientlib/CloudRecords.h"

namespace clients::directory {

/// Reads one object from beginning to end, as it was when the stream was started, even if it is replaced or deleted
/// meanwhile. A file changed in place, which this client never does, is noticed and refused.
class CDownloadStream : public cloudclientlib::IDownloadStream {
public:
    CDownloadStream(std::shared_ptr<CStore> store, SOperation operation, const SPlace& place);

    std::size_t Read(std::span<char> buffer) override;

private:
    void CheckUnchanged() const;

    const std::shared_ptr<CStore> store_;
    const SOperation operation_;
    SOpenObject object_;
    std::uint64_t position_ = 0;
};

/// Writes one object. Any failure ends the stream: what was written is dropped, and Finish fails.
class CUploadStream : public cloudclientlib::IUploadStream {
public:
    CUploadStream(std::shared_ptr<CStore> store, SOperation operation, SPlace place, std::uint64_t size);

    void Write(std::span<const char> data) override;
    void Finish() override;

private:
    CPendingObject& GetObject();
    void Refuse(const std::string& reason);

    const std::shared_ptr<CStore> store_;
    const SOperation operation_;
    const std::uint64_t size_;
    std::uint64_t written_ = 0;
    std::unique_ptr<CPendingObject> object_;  // gone after Finish and after a failure
};

}  // namespace clients::directory
