#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "clients/memory/MemoryClient.h"
#include "cloudbackuplib/CloudBackup.h"
#include "cloudbackuplib/CloudPaths.h"
#include "common/exc.h"
#include "common/options.h"
#include "tests/support/RecordingSink.h"
#include "tests/support/TempDir.h"

/// What the tests of backups share: a store in memory with one backup, "B".
namespace test {

using namespace cloudbackuplib::backup;  // NOLINT: the namespace under test
using checkpoint::CCloudCheckpoint;
using checkpoint::CCloudDxrDescriptor;
using checkpoint::CCloudStorageDescriptor;
using checkpoint::cloud_parts_map_t;
using checkpoint::COwnerDescriptor;
using checkpoint::DxrContentFeature;

inline guid::guid_t Guid(std::uint8_t last) {
    std::array<std::uint8_t, 16> bytes{};
    bytes[15] = last;
    return guid::guid_t(bytes);
}

/// The whole chain of the failure; "no failure" when there is none.
template <class F>
std::string FailureOf(const F& operation) {
    try {
        operation();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "no failure";
}

/// The digest whose other bytes are zero.
inline digest::md5_digest_t Digest(std::uint8_t first, std::uint8_t last = 0) {
    digest::md5_digest_t digest;
    digest.bytes.front() = first;
    digest.bytes.back() = last;
    return digest;
}

inline cloudclientlib::ICloudClient::buffer_ptr Bytes(std::string_view text) {
    return std::make_shared<cnt::array_t<char>>(text.begin(), text.end());
}

inline void Put(cloudclientlib::ICloudClient& client, const std::string& path, std::string_view text) {
    client.UploadFileAsync(path, Bytes(text))->Wait();
}

inline std::string Get(cloudclientlib::ICloudClient& client, const std::string& path) {
    const auto buffer = Bytes("");
    client.DownloadFileAsync(path, buffer)->Wait();
    return {buffer->begin(), buffer->end()};
}

/// A local part with these bytes.
inline SMetaLocationDescr Part(std::string_view bytes) {
    SMetaLocationDescr part;
    part.Size = bytes.size();
    part.Data.Set(Bytes(bytes));
    return part;
}

inline CCloudStorageDescriptor Storage(const guid::guid_t& id, unsigned long version, unsigned long size,
                                       const cloud_parts_map_t& parts = {},
                                       CloudStorageBlockStoreSchema schema = CloudStorageBlockStoreSchema::legacy) {
    return {id, id.ToAStr() + "." + std::to_string(version), version, size, schema, parts};
}

inline CCloudBackup::checkpoint_ptr Checkpoint(unsigned long id,
                                               const std::vector<CCloudStorageDescriptor>& storages = {},
                                               const std::string& longTerm = {}) {
    return std::make_shared<CCloudCheckpoint>(storages, CCloudDxrDescriptor("content " + std::to_string(id)),
                                              CCloudDxrDescriptor(longTerm), COwnerDescriptor(), id, 2);
}

inline std::shared_ptr<CCloudBackup> Backup(const CCloudBackup::client_ptr& client, unsigned long lastId = 0) {
    return std::make_shared<CCloudBackup>("B", COwnerDescriptor(Guid(9), "host", "the owner"), Guid(8), client, client,
                                          lastId, ErrorHandling::fail);
}

inline std::string RegularPath(unsigned long id) { return paths::GetCheckpointPath("B", id); }
inline std::string LongTermPath(unsigned long id) { return paths::GetCheckpointLongTermPath("B", id); }

/// A store in memory that lists its calls, and the log.
class BackupTest : public testing::Test {
protected:
    explicit BackupTest(std::size_t taskLimit = 8)
        : client_(std::make_shared<clients::CMemoryClient>(Recording(taskLimit))) {}

    static clients::SMemoryOptions Recording(std::size_t taskLimit = 8) {
        clients::SMemoryOptions options;
        options.recordCalls = true;
        options.concurrentTaskLimit = taskLimit;
        return options;
    }

    /// "UploadFile /B/x", for every call that reaches a store since the last ClearCalls.
    [[nodiscard]] std::vector<std::string> Calls() const {
        std::vector<std::string> calls;
        for (const auto& call : client_->GetCalls()) {
            if (call.operation != "GetConcurrentTaskLimit" && call.operation != "CreateAsyncTaskUtils") {
                calls.push_back(call.operation + " " + call.path);
            }
        }
        return calls;
    }

    [[nodiscard]] bool Exists(const std::string& path) const { return client_->Reopen()->IsFileExist(path); }

    /// The sections in which something was logged.
    [[nodiscard]] std::set<std::string> Sections() const {
        std::set<std::string> sections;
        for (const auto& entry : sink_.GetEntries()) {
            sections.insert(entry.section);
        }
        return sections;
    }

    void TearDown() override {
        options_t::GetInst().EnableSingleFileCloudMetadata(false);
        options_t::GetInst().SetBlockDeletionConcurrency(1);
    }

    const std::shared_ptr<clients::CMemoryClient> client_;
    RecordingSink sink_;
};

}  // namespace test
