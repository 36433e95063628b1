#include "tests/faults/BackupModel.h"
#include "tests/faults/FaultSweep.h"

namespace {

using namespace test;
using cloudclientlib::EFaultMode;
using testing::ElementsAre;
using testing::IsEmpty;

using ids_t = std::set<unsigned long>;

constexpr const char* longTermContent = "keep";

std::shared_ptr<CCloudBackup> Open(const CCloudBackup::client_ptr& client, const std::string& id = "B") {
    return CCloudBackup::LoadExisting(id, client, client, {}, {}, ErrorHandling::fail);
}

digest::md5_digest_t Block(std::uint8_t number) { return digest::Md5(std::string(1, static_cast<char>(number))); }

std::string BlockPath(std::uint8_t storage, std::uint8_t number) {
    return paths::GetBackupBlockPath("B", Guid(storage), paths::DigestToBlockName(Block(number)));
}

void PutBlock(const store_ptr& store, std::uint8_t storage, std::uint8_t number) {
    Put(*store, BlockPath(storage, number), std::string(1, static_cast<char>(number)));
}

/// A backup with three checkpoints. Storage 1 changes a bank at a time, storage 2 once, storage 4 is in the first
/// alone, storage 5 in the second alone.
class BackupFaults : public testing::Test {
protected:
    void SetUp() override {
        (void)CCloudBackup::CreateNew("B", base_, base_, {}, {});
        for (const std::uint8_t storage : std::array<std::uint8_t, 4>{1, 2, 4, 5}) {
            PutBlock(base_, storage, 1);
            PutBlock(base_, storage, 2);
        }
        const auto backup = Open(base_);
        (void)backup->CreateCheckpoint(First());
        (void)backup->CreateCheckpoint(Second(backup->LoadCheckpoint(1)));
        (void)backup->CreateCheckpoint(Third(backup->LoadCheckpoint(2)));
        const std::set<digest::md5_digest_t> both = {Block(1), Block(2)};
        model_.SetCheckpoint(1, {{Guid(1), {"HEADbankmore", both}}, {Guid(2), {"h2", both}}, {Guid(4), {"h4", both}}});
        model_.SetCheckpoint(2, {{Guid(1), {"HeadBANKmore", both}}, {Guid(2), {"h2", both}}, {Guid(5), {"h5", both}}});
        model_.SetCheckpoint(3, {{Guid(1), {"headBANKMORE", {Block(2)}}}, {Guid(2), {"H2", both}}});
        model_.SetCheckpoint(4,
                             {{Guid(1), {"head4444MORE", {Block(2)}}}, {Guid(2), {"H2", both}}, {Guid(6), {"h6", {}}}});
        model_.Check(base_, {1, 2, 3});
    }

    static SChangedStorage Whole(std::uint8_t storage, unsigned long version, const std::string& header) {
        return {Storage(Guid(storage), version, header.size()), {{0, Part(header)}}};
    }
    /// A commit of storage 1: a header and one bank; the other keeps its place.
    static SChangedStorage WithBank(unsigned long version, const std::string& header, unsigned long offset,
                                    const std::string& bank, const CCloudBackup::checkpoint_ptr& previous) {
        const auto& kept = previous->GetStorageById(Guid(1)).GetCloudMetadataPartDescriptionsMap();
        return {Storage(Guid(1), version, 12, kept), {{0, Part(header)}, {offset, Part(bank)}}};
    }

    static SCheckpointCreationParams First() {
        const SChangedStorage storage = {Storage(Guid(1), 1, 12),
                                         {{0, Part("HEAD")}, {4, Part("bank")}, {8, Part("more")}}};
        return {"1", "", {}, {storage, Whole(2, 1, "h2"), Whole(4, 1, "h4")}};
    }
    static SCheckpointCreationParams Second(const CCloudBackup::checkpoint_ptr& previous) {
        return {"2",
                longTermContent,
                {previous->GetStorageById(Guid(2))},
                {WithBank(2, "Head", 4, "BANK", previous), Whole(5, 1, "h5")}};
    }
    static SCheckpointCreationParams Third(const CCloudBackup::checkpoint_ptr& previous) {
        return {"3", "", {}, {WithBank(3, "head", 8, "MORE", previous), Whole(2, 2, "H2")}};
    }
    static SCheckpointCreationParams Fourth(const CCloudBackup::checkpoint_ptr& previous) {
        return {"4",
                longTermContent,
                {previous->GetStorageById(Guid(2))},
                {WithBank(4, "head", 4, "4444", previous), Whole(6, 1, "h6")}};
    }

    std::function<void(const store_ptr&)> Whole(const ids_t& required) {
        return [this, required](const store_ptr& store) { model_.Check(store, required); };
    }

    const store_ptr base_ = std::make_shared<clients::CMemoryClient>();
    BackupModel model_;
};

TEST_F(BackupFaults, CreateCheckpoint) {
    const auto commit = [](const CCloudBackup::client_ptr& client) {
        const auto backup = Open(client);
        if (backup->GetLastCheckpointId() == 3) {  // else it was saved, only the answer was lost
            (void)backup->CreateCheckpoint(Fourth(backup->LoadCheckpoint(3)));
        }
    };
    const auto result = RunSweep(base_, {.prepare = [](const faults_ptr& faults) -> std::function<void()> {
                                             const auto backup = Open(faults);
                                             const auto previous = backup->LoadCheckpoint(3);
                                             return [=] { (void)backup->CreateCheckpoint(Fourth(previous)); };
                                         },
                                         .check = Whole({1, 2, 3}),
                                         .retry = commit,
                                         .checkDone = Whole({1, 2, 3, 4})});
    // Two headers, a bank, and both copies of the document, each looked for and written.
    EXPECT_EQ(result.calls, 7U);
    EXPECT_EQ(result.reported, 6 * result.calls);
}

TEST_F(BackupFaults, ARetryInTheSameObjectNeverOverwrites) {
    for (const auto& way : AllFaultWays()) {
        for (std::uint64_t call = 1; call <= 7; ++call) {
            SCOPED_TRACE("call " + std::to_string(call) + ", " + way.ToAStr());
            const auto store = base_->Clone();
            const auto faults = std::make_shared<cloudclientlib::CFaultClient>(store);
            const auto backup = Open(faults);
            const auto params = Fourth(backup->LoadCheckpoint(3));
            faults->Arm({.call = call, .mode = way.mode, .crash = way.crash});
            EXPECT_THROW((void)backup->CreateCheckpoint(params), exc::CRuntimeExc);
            faults->Disarm();
            const bool saved = store->IsFileExist(RegularPath(4));
            EXPECT_EQ(
                FailureOf([&] { (void)backup->CreateCheckpoint(params); }),
                saved ? "Failed to save checkpoint '4' for cloud backup 'B': Checkpoint already exists" : "no failure");
            model_.Check(store->Reopen(), {1, 2, 3, 4});
        }
    }
}

/// Everything in the store.
std::vector<std::string> AllObjects(cloudclientlib::ICloudClient& client, const std::string& folder) {
    std::vector<std::string> objects;
    for (const auto& entry : client.QueryFolder(folder)) {
        const std::string path = folder + "/" + entry.name;
        const auto found = entry.isFolder ? AllObjects(client, path) : std::vector<std::string>{path};
        objects.insert(objects.end(), found.begin(), found.end());
    }
    return objects;
}

std::string Item(std::uint8_t storage, unsigned long version) {
    return "/B/Metadata/" + Guid(storage).ToAStr() + "." + std::to_string(version);
}

TEST_F(BackupFaults, DeleteCheckpoints) {
    const auto deleteRest = [](const store_ptr& store) {
        const auto backup = Open(store);
        std::vector<unsigned long> ids;
        for (const unsigned long id : backup->EnumCheckpointsImpl(CheckpointFilter::all)) {
            if (id < 3) {
                ids.push_back(id);
            }
        }
        backup->DeleteCheckpoints(ids);
    };
    const auto onlyTheLast = [](const store_ptr& store) {
        EXPECT_THAT(Open(store)->EnumCheckpointsImpl(CheckpointFilter::all), ElementsAre(3));
    };
    const auto result = RunSweep(base_, {.prepare = [](const faults_ptr& faults) -> std::function<void()> {
                                             const auto backup = Open(faults);
                                             return [=] { backup->DeleteCheckpoints({1, 2}); };
                                         },
                                         .check = Whole({3}),
                                         .retry = deleteRest,
                                         .checkDone = onlyTheLast});
    // Two listings, three documents read, four deleted, five headers, two banks, two stores looked for and deleted.
    EXPECT_EQ(result.calls, 20U);
    EXPECT_GT(result.reported, 0U);
}

TEST_F(BackupFaults, AnUndisturbedDeletionLeavesNothingUnreferenced) {
    Open(base_)->DeleteCheckpoints({1, 2});
    EXPECT_THAT(AllObjects(*base_, "/B/Metadata"),
                testing::UnorderedElementsAre(RegularPath(3), Item(1, 3), Item(2, 2), Item(1, 2) + "_metaparts/4",
                                              Item(1, 3) + "_metaparts/8"));
    EXPECT_THAT(AllObjects(*base_, "/B/BlockStore"),
                testing::UnorderedElementsAre(BlockPath(1, 1), BlockPath(1, 2), BlockPath(2, 1), BlockPath(2, 2)));
}

TEST_F(BackupFaults, ListingThatClearsAnOrphan) {
    base_->DeleteFileAsync(RegularPath(2))->Wait();
    const auto list = [](const store_ptr& store) { (void)Open(store)->EnumCheckpoints(); };
    const auto noOrphan = [](const store_ptr& store) {
        EXPECT_THAT(Open(store)->EnumCheckpointsImpl(CheckpointFilter::all), ElementsAre(1, 3));
    };
    const auto result = RunSweep(base_, {.prepare = [](const faults_ptr& faults) -> std::function<void()> {
                                             const auto backup = Open(faults);
                                             return [=] { (void)backup->EnumCheckpoints(); };
                                         },
                                         .check = Whole({1, 3}),
                                         .retry = list,
                                         .checkDone = noOrphan});
    EXPECT_GT(result.calls, 10U);
}

TEST_F(BackupFaults, ClearOrphanedBlocks) {
    for (const std::uint8_t orphan : std::array<std::uint8_t, 3>{7, 8, 9}) {
        PutBlock(base_, 1, orphan);
    }
    const std::vector<digest::md5_digest_t> inUse = {Block(1), Block(2)};
    const auto result =
        RunSweep(base_, {.prepare = [&](const faults_ptr& faults) -> std::function<void()> {
                             const auto backup = Open(faults);
                             return [=] { backup->ClearOrphanedBlocks(Guid(1), inUse); };
                         },
                         .check = Whole({1, 2, 3}),
                         .retry = [&](const store_ptr& store) { Open(store)->ClearOrphanedBlocks(Guid(1), inUse); },
                         .checkDone =
                             [](const store_ptr& store) {
                                 EXPECT_EQ(store->GetObjectCount("/B/BlockStore/" + Guid(1).ToAStr()), 2U);
                             }});
    EXPECT_EQ(result.calls, 256U + 3U);
    EXPECT_EQ(result.reported, 6 * result.calls);
}

TEST_F(BackupFaults, CreateNewBesideAnother) {
    const auto create = [](const CCloudBackup::client_ptr& client) {
        (void)CCloudBackup::CreateNew("N", client, client, {}, {});
    };
    const auto result = RunSweep(
        base_, {.prepare = [&](const faults_ptr& faults) -> std::function<void()> { return [=] { create(faults); }; },
                .check = Whole({1, 2, 3}),
                .retry = create,
                .checkDone =
                    [](const store_ptr& store) {
                        const auto created = Open(store, "N");
                        EXPECT_EQ(created->GetLastCheckpointId(), 0U);
                        EXPECT_EQ(created->CreateCheckpoint({})->GetId(), 1U);
                    }});
    // Two tests for the backup, five for its folders (the root is there), four folders made.
    EXPECT_EQ(result.calls, 11U);
    EXPECT_EQ(result.reported, 6 * result.calls);
}

TEST_F(BackupFaults, CreateNewOverAnUnfinishedOne) {
    CCloudBackup::InitBackupFolders("N", base_);
    Put(*base_, "/N/Metadata/left", "over");
    Put(*base_, "/N/BlockStore/left", "over");
    const auto create = [](const CCloudBackup::client_ptr& client) {
        (void)CCloudBackup::CreateNew("N", client, client, {}, {});
    };
    const auto result = RunSweep(
        base_, {.prepare = [&](const faults_ptr& faults) -> std::function<void()> { return [=] { create(faults); }; },
                .check = Whole({1, 2, 3}),
                .retry = create,
                .checkDone =
                    [](const store_ptr& store) {
                        EXPECT_EQ(Open(store, "N")->GetLastCheckpointId(), 0U);
                        EXPECT_THAT(AllObjects(*store, "/N"), IsEmpty());
                    }});
    EXPECT_EQ(result.reported, 6 * result.calls);
}

TEST_F(BackupFaults, DeleteBackup) {
    // One call, which a store may leave half done: the deleted backup is whole only while nothing was done, the other
    // one always, and a retry ends it.
    CCloudBackup::InitBackupFolders("D", base_);
    (void)Open(base_, "D")->CreateCheckpoint(First());
    const auto result =
        RunSweep(base_, {.prepare = [](const faults_ptr& faults) -> std::function<void()> {
                             return [=] { CCloudBackup::DeleteBackup("D", faults); };
                         },
                         .check = Whole({1, 2, 3}),
                         .retry = [](const store_ptr& store) { CCloudBackup::DeleteBackup("D", store); },
                         .checkDone =
                             [](const store_ptr& store) {
                                 EXPECT_THROW((void)Open(store, "D"), CBackupNotFoundExc);
                                 EXPECT_EQ(store->GetObjectCount("/D"), 0U);
                             }});
    EXPECT_EQ(result.calls, 1U);
    EXPECT_EQ(result.reported, 6U);
}

}  // namespace
