#include <functional>
#include <random>
#include <set>

#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/wrappers/CountingClient.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "tests/library/BackupFixture.h"

namespace {

using namespace test;
using cloudclientlib::CFaultClient;
using logging::level_t;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* storageText = "00000000-0000-0000-0000-000000000001";
const std::string store = std::string("/B/BlockStore/") + storageText;

/// A digest whose name begins with the two digits of `first`.
std::string PathOf(const digest::md5_digest_t& digest) {
    return paths::GetBackupBlockPath("B", Guid(1), paths::DigestToBlockName(digest));
}

class BackupBlocks : public BackupTest {
protected:
    void PutBlock(const digest::md5_digest_t& digest) { Put(*client_, PathOf(digest), "block"); }
    /// The paths deleted one by one, in order.
    [[nodiscard]] std::vector<std::string> Deletions() const {
        std::vector<std::string> paths;
        for (const auto& call : client_->GetCalls()) {
            if (call.operation == "DeleteFile") {
                paths.push_back(call.path);
            }
        }
        return paths;
    }
    [[nodiscard]] bool HasBlock(const digest::md5_digest_t& digest) const { return Exists(PathOf(digest)); }

    const std::shared_ptr<CCloudBackup> backup_ = Backup(client_);
};

TEST_F(BackupBlocks, OnlyTheBlobsSchemaHasSwitched) {
    EXPECT_FALSE(CCloudBackup::BlockStoreSwitchedToArchiveBlobsStore(Storage(Guid(1), 1, 1)));
    EXPECT_TRUE(CCloudBackup::BlockStoreSwitchedToArchiveBlobsStore(
        Storage(Guid(1), 1, 1, {}, CloudStorageBlockStoreSchema::blobs)));
    EXPECT_FALSE(CCloudBackup::BlockStoreSwitchedToArchiveBlobsStore(
        Storage(Guid(1), 1, 1, {}, static_cast<CloudStorageBlockStoreSchema>(2))));
}

TEST_F(BackupBlocks, DeletingAnArchiveBlobStoreCallsNothing) {
    backup_->DeleteArchiveBlobStore(Guid(1));
    EXPECT_THAT(client_->GetCalls(), IsEmpty());
    EXPECT_THAT(sink_.GetEntries(), IsEmpty());
}

TEST_F(BackupBlocks, MeasuresAStore) {
    PutBlock(Digest(0x0A));
    PutBlock(Digest(0xFF));
    Put(*client_, store + "2/00/0011", "beside");
    client_->ClearCalls();
    EXPECT_EQ(backup_->GetBlockStoreSize(Guid(1)), 10U);
    EXPECT_THAT(Calls(), ElementsAre("GetFolderSize " + store));
    EXPECT_THAT(sink_.GetScopes(),
                ElementsAre(std::string("> Calculating blockstore size for storage '") + storageText + "'", "< ok"));
    EXPECT_EQ(backup_->GetBlockStoreSize(Guid(2)), 0U);
}

TEST_F(BackupBlocks, DeletesAStore) {
    PutBlock(Digest(0x0A));
    Put(*client_, store + "2/00/0011", "beside");
    client_->ClearCalls();
    backup_->DeleteBlockStore(Guid(1));
    EXPECT_THAT(Calls(), ElementsAre("IsFolderExist " + store, "DeleteFolder " + store));
    EXPECT_FALSE(client_->IsFolderExist(store));
    EXPECT_TRUE(Exists(store + "2/00/0011"));
    EXPECT_THAT(sink_.GetScopes(),
                ElementsAre(std::string("> Deleting storage blockstore '") + storageText + "'", "< ok"));
    EXPECT_EQ(sink_.GetEntries().front().section, "storage");
}

TEST_F(BackupBlocks, DeletingAMissingStoreIsNoError) {
    backup_->DeleteBlockStore(Guid(1));
    EXPECT_THAT(Calls(), ElementsAre("IsFolderExist " + store));
    EXPECT_THAT(sink_.GetScopes(), testing::Contains("< ok"));
}

TEST_F(BackupBlocks, ReleasedBlocksGoOneByOneInOrder) {
    for (const std::uint8_t first : std::array<std::uint8_t, 3>{0x10, 0x20, 0x30}) {
        PutBlock(Digest(first));
    }
    client_->ClearCalls();
    const auto counting = std::make_shared<cloudclientlib::CCountingClient>(client_);
    Backup(counting)->ClearReleasedBlocks(Guid(1), {Digest(0x30), Digest(0x40), Digest(0x10)});
    EXPECT_THAT(Calls(), ElementsAre("DeleteFile " + PathOf(Digest(0x30)), "DeleteFile " + PathOf(Digest(0x40)),
                                     "DeleteFile " + PathOf(Digest(0x10))));
    EXPECT_EQ(counting->GetCounts().mostTasksInFlight, 1U);
    EXPECT_TRUE(HasBlock(Digest(0x20)));
    EXPECT_THAT(sink_.GetScopes(),
                ElementsAre(std::string("> Erasing released blocks from storage '") + storageText + "'", "< ok"));
    EXPECT_EQ(PathOf(Digest(0x0A)), store + "/0a/0a000000000000000000000000000000");
}

TEST_F(BackupBlocks, EverythingIsLoggedInTheSectionOfStorages) {
    (void)backup_->GetBlockStoreSize(Guid(1));
    backup_->DeleteBlockStore(Guid(1));
    backup_->ClearReleasedBlocks(Guid(1), {});
    backup_->ClearOrphanedBlocks(Guid(1), {});
    EXPECT_THAT(Sections(), ElementsAre("storage"));
}

TEST_F(BackupBlocks, FailuresOfAStorePassThrough) {
    PutBlock(Digest(0x10));
    const auto scopes = [&](std::uint64_t call, const std::function<void(CCloudBackup&)>& operation) {
        const auto faults = std::make_shared<CFaultClient>(client_);
        faults->Arm({.call = call});
        const RecordingSink sink;
        EXPECT_THROW(operation(*Backup(faults)), cloudclientlib::CCloudExc);
        return sink.GetScopes();
    };
    const auto failed = [](const std::string& opened) {
        return ElementsAre("> " + opened + " '" + storageText + "'", "< failed");
    };
    EXPECT_THAT(scopes(1, [](CCloudBackup& backup) { (void)backup.GetBlockStoreSize(Guid(1)); }),
                failed("Calculating blockstore size for storage"));
    for (const std::uint64_t call : {1U, 2U}) {  // the test for the folder, its deletion
        EXPECT_THAT(scopes(call, [](CCloudBackup& backup) { backup.DeleteBlockStore(Guid(1)); }),
                    failed("Deleting storage blockstore"));
    }
    EXPECT_THAT(scopes(257, [](CCloudBackup& backup) { backup.ClearOrphanedBlocks(Guid(1), {}); }),
                failed("Erasing orphaned blocks from storage"));
    EXPECT_TRUE(HasBlock(Digest(0x10)));
}

TEST_F(BackupBlocks, NothingReleasedNothingCalled) {
    backup_->ClearReleasedBlocks(Guid(1), {});
    EXPECT_THAT(Calls(), IsEmpty());
    EXPECT_THAT(sink_.GetScopes(),
                ElementsAre(std::string("> Erasing released blocks from storage '") + storageText + "'", "< ok"));
}

TEST_F(BackupBlocks, AFailedDeletionEndsTheRelease) {
    for (const std::uint8_t first : std::array<std::uint8_t, 3>{0x10, 0x20, 0x30}) {
        PutBlock(Digest(first));
    }
    const auto faults = std::make_shared<CFaultClient>(client_);
    faults->Arm({.call = 2});
    const auto release = [&] {
        Backup(faults)->ClearReleasedBlocks(Guid(1), {Digest(0x10), Digest(0x20), Digest(0x30)});
    };
    EXPECT_THROW(release(), cloudclientlib::CCloudExc);
    EXPECT_FALSE(HasBlock(Digest(0x10)));
    EXPECT_TRUE(HasBlock(Digest(0x20)));
    EXPECT_TRUE(HasBlock(Digest(0x30)));
    EXPECT_THAT(sink_.GetScopes(), testing::Contains("< failed"));
}

TEST_F(BackupBlocks, DeletesWhatNobodyUsesInOrder) {
    PutBlock(Digest(0xFF));
    PutBlock(Digest(0x10));
    PutBlock(Digest(0x00, 1));
    Put(*client_, store + "2/00/0011", "beside");
    client_->ClearCalls();
    backup_->ClearOrphanedBlocks(Guid(1), {Digest(0x10), Digest(0x77)});
    const auto calls = Calls();
    ASSERT_EQ(calls.size(), 258U);
    const auto subfolders = paths::EnumCloudBlockSubfolders("B", Guid(1));
    for (std::size_t i = 0; i < subfolders.size(); ++i) {
        EXPECT_EQ(calls[i], "QueryFolder " + subfolders[i]);
    }
    EXPECT_EQ(calls[256], "DeleteFile " + PathOf(Digest(0x00, 1)));
    EXPECT_EQ(calls[257], "DeleteFile " + PathOf(Digest(0xFF)));
    EXPECT_TRUE(HasBlock(Digest(0x10)));
    EXPECT_TRUE(Exists(store + "2/00/0011"));
    EXPECT_THAT(sink_.GetScopes(),
                ElementsAre(std::string("> Erasing orphaned blocks from storage '") + storageText + "'", "< ok"));
    EXPECT_THAT(sink_.GetTexts(level_t::tr),
                ElementsAre("Loaded 3 block digests from blockstore", "2 orphaned blocks will be deleted"));
}

TEST_F(BackupBlocks, NothingIsDeletedWhenAllIsInUse) {
    PutBlock(Digest(0x10));
    PutBlock(Digest(0x20));
    backup_->ClearOrphanedBlocks(Guid(1), {Digest(0x20), Digest(0x10), Digest(0x10)});
    EXPECT_TRUE(HasBlock(Digest(0x10)));
    EXPECT_TRUE(HasBlock(Digest(0x20)));
    EXPECT_TRUE(sink_.Has("0 orphaned blocks will be deleted"));
}

TEST_F(BackupBlocks, AMissingStoreHasNoOrphans) {
    backup_->ClearOrphanedBlocks(Guid(1), {Digest(0x20)});
    EXPECT_EQ(Calls().size(), 256U);
    EXPECT_TRUE(sink_.Has("Loaded 0 block digests from blockstore"));
    EXPECT_TRUE(sink_.Has("0 orphaned blocks will be deleted"));
}

TEST_F(BackupBlocks, AnyNameIsABlockName) {
    Put(*client_, store + "/ab/abc", "x");
    Put(*client_, store + "/0a/0A000000000000000000000000000000", "x");  // upper case is another name
    Put(*client_, store + "/zz/zz", "x");                                // no subfolder of blocks
    client_->ClearCalls();
    backup_->ClearOrphanedBlocks(Guid(1), {Digest(0x0A)});
    EXPECT_FALSE(Exists(store + "/ab/abc"));
    EXPECT_TRUE(Exists(store + "/zz/zz"));
    // Its path follows from its name, not from where it was found.
    EXPECT_THAT(Calls(), testing::Contains("DeleteFile " + store + "/0A/0A000000000000000000000000000000"));
}

TEST_F(BackupBlocks, ANameFoundTwiceIsOneBlock) {
    const std::string name = paths::DigestToBlockName(Digest(0xAB));
    Put(*client_, store + "/ab/" + name, "x");
    Put(*client_, store + "/cd/" + name, "x");
    Put(*client_, store + "/00/stray", "x");
    Put(*client_, store + "/ff/stray", "x");
    client_->ClearCalls();
    backup_->ClearOrphanedBlocks(Guid(1), {});
    EXPECT_THAT(sink_.GetTexts(level_t::tr),
                ElementsAre("Loaded 2 block digests from blockstore", "2 orphaned blocks will be deleted"));
    EXPECT_EQ(Deletions(), (std::vector<std::string>{store + "/ab/" + name, store + "/st/stray"}));
}

TEST_F(BackupBlocks, NamesAreOrderedAsTexts) {
    const std::vector<std::string> names = {"!",
                                            "00",
                                            "00000000000000000000000000000000",
                                            "000000000000000000000000000000000",
                                            "0000000000000000000000000000000A",
                                            "0000000000000000000000000000000a",
                                            "0000000000000000000000000000000g",
                                            "00x",
                                            "9fffffffffffffffffffffffffffffff",
                                            "A0000000000000000000000000000000",
                                            "a",
                                            "a0000000000000000000000000000000",
                                            "ffffffffffffffffffffffffffffffff",
                                            "g",
                                            "\xC3\xA9"};
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        Put(*client_, store + "/00/" + *name, "x");
    }
    client_->ClearCalls();
    backup_->ClearOrphanedBlocks(Guid(1), {});
    std::vector<std::string> expected;
    for (const auto& name : names) {
        expected.push_back(store + "/" + name.substr(0, 2) + "/" + name);
    }
    EXPECT_EQ(Deletions(), expected);
}

/// What is left of random names after random digests were taken out, by way of a set of strings.
TEST_F(BackupBlocks, ForgetsNoNameAndInventsNone) {
    for (unsigned seed = 1; seed <= 5; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        std::mt19937 random(seed);
        const auto roll = [&](unsigned sides) { return static_cast<unsigned>(random() % sides); };
        std::set<std::string> names;
        std::vector<digest::md5_digest_t> inUse;
        for (unsigned i = 0; i < 300; ++i) {
            const auto digest = digest::Md5("block " + std::to_string(roll(200)));
            std::string name = paths::DigestToBlockName(digest);
            if (roll(4) == 0) {
                name[roll(32)] = "0aAgG"[roll(5)];
            }
            if (roll(8) == 0) {
                name.resize(1 + roll(40), 'f');
            }
            if (roll(2) == 0) {
                inUse.push_back(digest);
            }
            Put(*client_, store + "/" + "0123456789abcdef"[roll(16)] + "0/" + name, "x");
            names.insert(name);
        }
        const std::string loaded = "Loaded " + std::to_string(names.size()) + " block digests from blockstore";
        for (const auto& digest : inUse) {
            names.erase(paths::DigestToBlockName(digest));
        }
        std::vector<std::string> expected;
        for (const auto& name : names) {
            expected.push_back(store + "/" + name.substr(0, 2) + "/" + name);
        }
        client_->ClearCalls();
        const RecordingSink sink;
        backup_->ClearOrphanedBlocks(Guid(1), inUse);
        EXPECT_EQ(Deletions(), expected);
        EXPECT_THAT(sink.GetTexts(level_t::tr),
                    ElementsAre(loaded, std::to_string(names.size()) + " orphaned blocks will be deleted"));
        client_->DeleteFolderAsync(store, nullptr)->Wait();
    }
}

TEST_F(BackupBlocks, AFailedListingEndsTheCleanUpBeforeAnythingIsDeleted) {
    PutBlock(Digest(0x00));
    const auto faults = std::make_shared<CFaultClient>(client_);
    faults->Arm({.call = 256});
    EXPECT_THROW(Backup(faults)->ClearOrphanedBlocks(Guid(1), {}), cloudclientlib::CCloudExc);
    EXPECT_TRUE(HasBlock(Digest(0x00)));
    EXPECT_THAT(sink_.GetScopes(), testing::Contains("< failed"));
}

}  // namespace
