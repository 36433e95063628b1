#pragma once

#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "cloudbackuplib/CloudBackupSession.h"
#include "tests/support/MemoryExtent.h"

namespace test {

/// A host's writer of one storage's metadata: a header and, behind it, banks that follow each other.
///
/// Each flush writes the local file, shows the same bytes through the extent while the writer is attached, counts the
/// version up and reports. Banks need no upload unless they were updated.
class StorageWriter {
public:
    StorageWriter(const guid::guid_t& storageId, std::string localPath)
        : storageId_(storageId), localPath_(std::move(localPath)) {}

    std::string header;
    std::vector<std::string> banks;
    unsigned long version = 0;

    [[nodiscard]] const guid::guid_t& GetId() const { return storageId_; }
    [[nodiscard]] const std::string& GetPath() const { return localPath_; }

    void SetPath(std::string localPath) { localPath_ = std::move(localPath); }

    [[nodiscard]] std::string GetBytes() const {
        std::string bytes = header;
        for (const std::string& bank : banks) {
            bytes += bank;
        }
        return bytes;
    }

    /// Registers the local file, which holds `version`, and takes a sink.
    void Attach(cloudbackuplib::backup::CCloudBackupSession& session) {
        session.PrepareStorageForAccess(storageId_, localPath_, version);
        TakeSink(session);
    }

    void TakeSink(cloudbackuplib::backup::CCloudBackupSession& session) {
        auto extent = std::make_shared<MemoryExtent>(GetBytes());
        sink_ = session.GetStorageUpdateSink(storageId_, extent);
        extent_ = std::move(extent);
    }

    /// Lets sink and extent go; the metadata is in the local file alone from then on.
    void Detach() {
        sink_.reset();
        extent_.reset();
    }
    [[nodiscard]] bool IsAttached() const { return sink_ != nullptr; }

    void WriteFile() const { std::ofstream(localPath_, std::ios::binary | std::ios::trunc) << GetBytes(); }

    /// Writes everything and reports these banks (by number) as updated.
    void Flush(const std::set<std::size_t>& updatedBanks) {
        ++version;
        WriteFile();
        extent_->SetBytes(GetBytes());
        cloudbackuplib::backup::parts_map_t updated;
        cloudbackuplib::backup::parts_map_t layout;
        unsigned long offset = header.size();
        for (std::size_t i = 0; i < banks.size(); ++i) {
            auto& part = layout[offset];
            part.Size = banks[i].size();
            part.SkipUnlessUpdated = true;
            if (updatedBanks.contains(i)) {
                updated[offset] = part;
            }
            offset += banks[i].size();
        }
        sink_->Update(version, updated, layout, header.size());
    }

    void FlushAll() {
        std::set<std::size_t> all;
        for (std::size_t i = 0; i < banks.size(); ++i) {
            all.insert(i);
        }
        Flush(all);
    }

private:
    guid::guid_t storageId_;
    std::string localPath_;
    std::shared_ptr<MemoryExtent> extent_;
    std::shared_ptr<cloudbackuplib::backup::IMetaUpdateSink> sink_;
};

}  // namespace test
