#pragma once

#include <memory>

#include "clients/memory/MemoryStore.h"
#include "cloudclientlib/CloudRecords.h"

namespace clients {

/// Reads the content an object had when the download started. For one thread.
class CMemoryDownload : public cloudclientlib::IDownloadStream {
public:
    explicit CMemoryDownload(CMemoryStore::content_ptr content);
    std::size_t Read(std::span<char> buffer) override;

private:
    const CMemoryStore::content_ptr content_;
    std::size_t position_ = 0;
};

/// Gathers what is written; Finish stores it. For one thread. Keeps the store alive.
class CMemoryUpload : public cloudclientlib::IUploadStream {
public:
    CMemoryUpload(std::shared_ptr<CMemoryStore> store, SMemoryPath path, std::uint64_t size);
    void Write(std::span<const char> data) override;
    void Finish() override;

private:
    [[noreturn]] void Refuse(const char* reason) const;

    const std::shared_ptr<CMemoryStore> store_;
    const SMemoryPath path_;
    const std::uint64_t size_;
    CMemoryStore::content_t content_;
    bool isClosed_ = false;
};

}  // namespace clients
