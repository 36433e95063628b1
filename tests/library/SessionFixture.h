#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "cloudbackuplib/CloudBackupSession.h"
#include "tests/library/BackupFixture.h"
#include "tests/library/StorageWriter.h"

namespace test {

using session_ptr = std::shared_ptr<CCloudBackupSession>;

inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(const std::string& path, std::string_view text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

/// Backup "B", opened from scratch.
inline std::shared_ptr<CCloudBackup> OpenBackup(const CCloudBackup::client_ptr& client,
                                                ErrorHandling errorHandling = ErrorHandling::fail) {
    return CCloudBackup::LoadExisting("B", client, client, COwnerDescriptor(), Guid(8), errorHandling);
}

/// A storage's metadata as a checkpoint has it, downloaded through a fresh read-only session to a new file.
inline std::string Restore(const CCloudBackup::client_ptr& client, unsigned long checkpointId,
                           const guid::guid_t& storageId) {
    const TempDir folder;
    const std::string path = folder / "restored";
    const auto session = CCloudBackupSession::StartSession(OpenBackup(client), checkpointId, true);
    session->PrepareStorageForAccess(storageId, path, 0);
    return ReadFile(path);
}

/// Single-file metadata while it lives.
class SingleFileMode {
public:
    SingleFileMode() { options_t::GetInst().EnableSingleFileCloudMetadata(true); }
    SingleFileMode(const SingleFileMode&) = delete;
    SingleFileMode& operator=(const SingleFileMode&) = delete;
    ~SingleFileMode() { options_t::GetInst().EnableSingleFileCloudMetadata(false); }
};

/// A new backup "B" with a folder for local metadata; the log and the list of calls begin behind its creation.
class SessionTest : public BackupTest {
protected:
    SessionTest() { client_->ClearCalls(); }

    session_ptr Start(bool readOnly = false) {
        return CCloudBackupSession::StartSession(backup_, backup_->GetLastCheckpointId(), readOnly);
    }

    /// Goes on as after a restart of the host.
    session_ptr Reopen(ErrorHandling errorHandling = ErrorHandling::fail) {
        backup_ = OpenBackup(client_, errorHandling);
        return Start();
    }

    [[nodiscard]] std::string Local(const guid::guid_t& storageId) const { return folder_ / storageId.ToAStr(); }

    StorageWriter Writer(std::uint8_t storage, std::string header, std::vector<std::string> banks) {
        StorageWriter writer(Guid(storage), Local(Guid(storage)));
        writer.header = std::move(header);
        writer.banks = std::move(banks);
        writer.WriteFile();
        return writer;
    }

    /// Commits one storage, written whole, in a session of its own.
    StorageWriter CommitNew(std::uint8_t storage, std::string header = "head", std::vector<std::string> banks = {}) {
        StorageWriter writer = Writer(storage, std::move(header), std::move(banks));
        const auto session = Start();
        writer.Attach(*session);
        writer.FlushAll();
        session->CreateCheckpoint("content", "");
        writer.Detach();
        return writer;
    }

    /// What is in the cloud of a storage's metadata version: "" for the header, "<offset>" for a part.
    [[nodiscard]] std::vector<std::string> PartsInCloud(const guid::guid_t& storageId, unsigned long version) const {
        const std::string item = storageId.ToAStr() + "." + std::to_string(version);
        const auto client = client_->Reopen();
        std::vector<std::string> parts;
        if (client->IsFileExist(paths::GetBackupMetaItemPath("B", item))) {
            parts.emplace_back();
        }
        for (const auto& entry : client->QueryFolder(paths::GetBackupMetaItemPath("B", item + "_metaparts"))) {
            parts.push_back(entry.name);
        }
        return parts;
    }

    [[nodiscard]] std::vector<std::string> Warnings() const { return sink_.GetTexts(logging::level_t::warn); }

    const std::shared_ptr<clients::CMemoryClient> archive_ = std::make_shared<clients::CMemoryClient>();
    std::shared_ptr<CCloudBackup> backup_ =
        CCloudBackup::CreateNew("B", client_, archive_, COwnerDescriptor(), Guid(8));
    TempDir folder_;
};

}  // namespace test
