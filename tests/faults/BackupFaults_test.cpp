#include "cloudbackuplib/RestrictedCloudClient.h"
#include "tests/faults/BackupFaultFixture.h"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

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

// A storage that has gone over to blobs: its metadata stays, its old folder goes with the last checkpoint that used it.
TEST_F(BackupFaults, DeleteCheckpointsOfAStorageThatSwitchedToBlobs) {
    const auto backup = Open(base_);
    auto params = Fourth(backup->LoadCheckpoint(3));
    auto& switched = params.changedStorages.front().descriptor;
    switched =
        Storage(Guid(1), 4, 12, switched.GetCloudMetadataPartDescriptionsMap(), CloudStorageBlockStoreSchema::blobs);
    (void)backup->CreateCheckpoint(params);
    model_.SetCheckpoint(
        4, {{Guid(1), {"head4444MORE", {}}}, {Guid(2), {"H2", {Block(1), Block(2)}}}, {Guid(6), {"h6", {}}}});
    const auto deleteRest = [](const store_ptr& store) {
        const auto opened = Open(store);
        auto ids = opened->EnumCheckpointsImpl(CheckpointFilter::all);
        ids.erase(4);
        opened->DeleteCheckpoints({ids.begin(), ids.end()});
    };
    const auto result =
        RunSweep(base_, {.prepare = [](const faults_ptr& faults) -> std::function<void()> {
                             const auto opened = Open(faults);
                             return [=] { opened->DeleteCheckpoints({1, 2, 3}); };
                         },
                         .check = Whole({4}),
                         .retry = deleteRest,
                         .checkDone =
                             [](const store_ptr& store) {
                                 EXPECT_THAT(Open(store)->EnumCheckpointsImpl(CheckpointFilter::all), ElementsAre(4));
                             }});
    // Two listings, four documents read, six deleted, six headers, three banks, three stores looked for and
    // deleted.
    EXPECT_EQ(result.calls, 27U);
    Open(base_)->DeleteCheckpoints({1, 2, 3});
    EXPECT_EQ(base_->GetObjectCount("/B/BlockStore/" + Guid(1).ToAStr()), 0U);
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

TEST_F(BackupFaults, CreateNewUnderARootThatIsNotThereYet) {
    const auto create = [](const CCloudBackup::client_ptr& client) {
        const auto confined = std::make_shared<cloudclientlib::CRestrictedCloudClient>(client, "/Root");
        (void)CCloudBackup::CreateNew("N", confined, confined, {}, {});
    };
    const auto result = RunSweep(
        base_, {.prepare = [&](const faults_ptr& faults) -> std::function<void()> { return [=] { create(faults); }; },
                .check = Whole({1, 2, 3}),
                .retry = create,
                .checkDone =
                    [](const store_ptr& store) {
                        const auto confined = std::make_shared<cloudclientlib::CRestrictedCloudClient>(store, "/Root");
                        EXPECT_EQ(Open(confined, "N")->GetLastCheckpointId(), 0U);
                        EXPECT_TRUE(store->IsFolderExist("/Root/N/BlockStore"));
                    }});
    // Two tests for the backup, five for its folders, five folders made.
    EXPECT_EQ(result.calls, 12U);
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
