// What a commit is made of, each step by itself, and a commit of metadata in a single file.

#include "tests/faults/BackupFaultFixture.h"

namespace {

using namespace test;
using BackupUploadFaults = BackupFaults;

TEST_F(BackupUploadFaults, UploadMetadata) {
    const parts_map_t parts = {{0, Part("HEAD")}, {4, Part("bank")}, {8, Part("more")}};
    const auto result =
        RunSweep(base_, {.prepare = [&](const faults_ptr& faults) -> std::function<void()> {
                             const auto backup = Open(faults);
                             return [=] { backup->UploadMetadata(Guid(1), 9, parts); };
                         },
                         .check = Whole({1, 2, 3}),
                         .retry = [&](const store_ptr& store) { Open(store)->UploadMetadata(Guid(1), 9, parts); },
                         .checkDone =
                             [](const store_ptr& store) {
                                 EXPECT_EQ(Get(*store, Item(1, 9)), "HEAD");
                                 EXPECT_EQ(Get(*store, Item(1, 9) + "_metaparts/4"), "bank");
                                 EXPECT_EQ(Get(*store, Item(1, 9) + "_metaparts/8"), "more");
                             }});
    EXPECT_EQ(result.calls, 3U);
    EXPECT_EQ(result.reported, 6 * result.calls);
}

TEST_F(BackupUploadFaults, SaveCheckpoint) {
    // The storages of the third checkpoint, once more and for the long term.
    const auto next = Checkpoint(4, Open(base_)->LoadCheckpoint(3)->GetStorages(), longTermContent);
    model_.SetCheckpoint(4, {{Guid(1), {"headBANKMORE", {Block(2)}}}, {Guid(2), {"H2", {Block(1), Block(2)}}}});
    const auto saveRest = [&](const store_ptr& store) {
        const auto backup = Open(store);
        if (backup->GetLastCheckpointId() == 3) {
            backup->SaveCheckpoint(next);
        } else if (!store->IsFileExist(LongTermPath(4))) {
            backup->SaveCheckpointImpl(next, DxrContentFeature::longTerm);
        }
    };
    const auto result = RunSweep(base_, {.prepare = [&](const faults_ptr& faults) -> std::function<void()> {
                                             const auto backup = Open(faults);
                                             return [=] { backup->SaveCheckpoint(next); };
                                         },
                                         .check = Whole({1, 2, 3}),
                                         .retry = saveRest,
                                         .checkDone =
                                             [this](const store_ptr& store) {
                                                 model_.Check(store, {1, 2, 3, 4});
                                                 EXPECT_TRUE(store->IsFileExist(LongTermPath(4)));
                                             }});
    // Both copies, each looked for and written.
    EXPECT_EQ(result.calls, 4U);
    EXPECT_EQ(result.reported, 6 * result.calls);
}

TEST_F(BackupUploadFaults, CreateCheckpointOfSingleFiles) {
    options_t::GetInst().EnableSingleFileCloudMetadata(true);
    model_.SetCheckpoint(4, {{Guid(1), {"all in one", {Block(2)}}}, {Guid(2), {"H3", {Block(1), Block(2)}}}});
    const SCheckpointCreationParams params = {"4", "", {}, {Whole(1, 4, "all in one"), Whole(2, 3, "H3")}};
    const auto commit = [&](const store_ptr& store) {
        if (const auto backup = Open(store); backup->GetLastCheckpointId() == 3) {
            (void)backup->CreateCheckpoint(params);
        }
    };
    const auto result = RunSweep(base_, {.prepare = [&](const faults_ptr& faults) -> std::function<void()> {
                                             const auto backup = Open(faults);
                                             return [=] { (void)backup->CreateCheckpoint(params); };
                                         },
                                         .check = Whole({1, 2, 3}),
                                         .retry = commit,
                                         .checkDone = Whole({1, 2, 3, 4})});
    // Two headers, and the document, looked for and written.
    EXPECT_EQ(result.calls, 4U);
    EXPECT_EQ(result.reported, 6 * result.calls);
    EXPECT_EQ(Open(base_)->CreateCheckpoint(params)->GetFormatVersion(), 1);
}

TEST_F(BackupUploadFaults, CreateCheckpointWithoutChanges) {
    model_.SetCheckpoint(4, {{Guid(1), {"headBANKMORE", {Block(2)}}}, {Guid(2), {"H2", {Block(1), Block(2)}}}});
    const SCheckpointCreationParams params = {"4", "", Open(base_)->LoadCheckpoint(3)->GetStorages(), {}};
    const auto commit = [&](const store_ptr& store) {
        if (const auto backup = Open(store); backup->GetLastCheckpointId() == 3) {
            (void)backup->CreateCheckpoint(params);
        }
    };
    const auto result = RunSweep(base_, {.prepare = [&](const faults_ptr& faults) -> std::function<void()> {
                                             const auto backup = Open(faults);
                                             return [=] { (void)backup->CreateCheckpoint(params); };
                                         },
                                         .check = Whole({1, 2, 3}),
                                         .retry = commit,
                                         .checkDone = Whole({1, 2, 3, 4})});
    EXPECT_EQ(result.calls, 2U);
    EXPECT_EQ(result.reported, 6 * result.calls);
}

}  // namespace
