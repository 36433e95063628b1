#pragma once

#include <fstream>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "tests/library/BackupFixture.h"

namespace test {

/// What a host knows of its backup "B": for every checkpoint it committed, the metadata and the blocks of each storage.
/// Tells whether a store still has all of it.
class BackupModel {
public:
    struct SStorage {
        std::string metadata;
        std::set<digest::md5_digest_t> blocks;
    };
    using storages_t = std::map<guid::guid_t, SStorage>;

    void SetCheckpoint(unsigned long id, storages_t storages) { checkpoints_[id] = std::move(storages); }

    /// Every checkpoint in the store is one that was committed, and whole; those of `required` are there.
    void Check(const CCloudBackup::client_ptr& client, const std::set<unsigned long>& required) {
        const auto backup = CCloudBackup::LoadExisting("B", client, client, {}, {}, ErrorHandling::fail);
        const auto ids = backup->EnumCheckpointsImpl(CheckpointFilter::all);
        EXPECT_THAT(ids, testing::IsSupersetOf(required));
        const std::string metadata = Fingerprint(*client, "/B/Metadata");
        for (const unsigned long id : ids) {
            SCOPED_TRACE("checkpoint " + std::to_string(id));
            ASSERT_TRUE(checkpoints_.contains(id));
            CheckBlocks(*client, checkpoints_.at(id));
            if (!verified_.contains(metadata)) {
                CheckMetadata(*backup, id);
            }
        }
        if (!testing::Test::HasFailure()) {
            verified_.insert(metadata);
        }
    }

private:
    void CheckMetadata(const CCloudBackup& backup, unsigned long id) const {
        CCloudBackup::checkpoint_ptr checkpoint;
        ASSERT_NO_THROW(checkpoint = backup.LoadCheckpoint(id));
        ASSERT_EQ(checkpoint->GetStorages().size(), checkpoints_.at(id).size());
        for (const auto& storage : checkpoint->GetStorages()) {
            const std::string path = folder_ / "meta";
            ASSERT_NO_THROW(backup.DonwloadStorageMeta(storage, path));
            std::ifstream file(path);
            const std::string bytes{std::istreambuf_iterator<char>(file), {}};
            EXPECT_EQ(bytes, checkpoints_.at(id).at(storage.GetStorageId()).metadata);
        }
    }

    static void CheckBlocks(cloudclientlib::ICloudClient& client, const storages_t& storages) {
        for (const auto& [id, storage] : storages) {
            for (const auto& digest : storage.blocks) {
                const std::string path = paths::GetBackupBlockPath("B", id, paths::DigestToBlockName(digest));
                EXPECT_TRUE(client.IsFileExist(path)) << path;
            }
        }
    }

    /// Tells apart any two states of a folder: its objects by their paths and digests.
    static std::string Fingerprint(cloudclientlib::ICloudClient& client, const std::string& folder) {
        std::string text;
        for (const auto& entry : client.QueryFolder(folder)) {
            const std::string path = folder + "/" + entry.name;
            text += entry.isFolder ? Fingerprint(client, path) : path + "=" + entry.md5->ToAStr() + "\n";
        }
        return text;
    }

    const TempDir folder_;
    std::map<unsigned long, storages_t> checkpoints_;
    /// Downloads go to a disk and are slow: what was verified once need not be again.
    std::set<std::string> verified_;
};

}  // namespace test
