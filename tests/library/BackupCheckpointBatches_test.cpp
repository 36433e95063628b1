#include <stdexcept>

#include "cloudclientlib/wrappers/CountingClient.h"
#include "tests/library/BackupFixture.h"

namespace {

using namespace test;
using testing::ElementsAre;

class BackupCheckpointBatches : public BackupTest {
protected:
    void SaveAll(unsigned long last) {
        for (unsigned long id = 1; id <= last; ++id) {
            Backup(client_)->SaveCheckpoint(Checkpoint(id));
        }
    }

    /// "3" for a checkpoint that came, "3: <failure>" for one that did not.
    static CCloudBackup::load_handler_t Into(std::vector<std::string>& results) {
        return [&results](unsigned long id, const auto& checkpoint, const auto& failure) {
            std::string text = std::to_string(id);
            if (failure) {
                text += ": " + FailureOf([&] { std::rethrow_exception(failure); });
            } else {
                EXPECT_EQ(checkpoint->GetId(), id);
            }
            results.push_back(text);
        };
    }
};

TEST_F(BackupCheckpointBatches, KeepsSeveralDownloadsInFlightAndTheirOrder) {
    SaveAll(20);
    const auto counting = std::make_shared<cloudclientlib::CCountingClient>(client_);
    std::vector<std::string> results;
    Backup(counting)->LoadCheckpoints({20, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}, Into(results));
    EXPECT_THAT(results, ElementsAre("20", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11"));
    EXPECT_EQ(counting->GetCounts().mostTasksInFlight, 8U);
    EXPECT_EQ(counting->GetCounts().tasksInFlight, 0U);
    EXPECT_EQ(counting->GetCounts().Of(cloudclientlib::EOperation::downloadFile), 12U);
}

TEST_F(BackupCheckpointBatches, OneFailureIsHandedOnWithoutEndingTheRest) {
    SaveAll(4);
    client_->DeleteFileAsync(RegularPath(2))->Wait();
    Put(*client_, RegularPath(3), "<x/>");
    std::vector<std::string> results;
    Backup(client_)->LoadCheckpoints({1, 2, 3, 4, 0}, Into(results));
    EXPECT_THAT(results, ElementsAre("1", "2: DownloadFile '/B/Metadata/CheckpointLongTerm/2': object not found",
                                     "3: Failed to load checkpoint '3' for cloud backup 'B': Cannot find required "
                                     "node: Checkpoint",
                                     "4", "0"));
}

TEST_F(BackupCheckpointBatches, ABatchFallsBackToLongTermCopies) {
    SaveAll(2);
    Backup(client_)->SaveCheckpoint(Checkpoint(3, {}, "keep"));
    client_->DeleteFileAsync(RegularPath(3))->Wait();
    std::vector<std::string> results;
    Backup(client_)->LoadCheckpoints({1, 3, 2}, Into(results));
    EXPECT_THAT(results, ElementsAre("1", "3", "2"));
    EXPECT_TRUE(sink_.Has("Loading long-term checkoint. Backup id: 'B', Checkpoint: '3'"));
}

TEST_F(BackupCheckpointBatches, AFailedTakerEndsTheBatchWithNothingInFlight) {
    SaveAll(12);
    const auto counting = std::make_shared<cloudclientlib::CCountingClient>(client_);
    std::size_t taken = 0;
    const auto take = [&](unsigned long, const auto&, const auto&) {
        ++taken;
        throw std::runtime_error("enough");
    };
    EXPECT_EQ(FailureOf([&] {
                  Backup(counting)->LoadCheckpoints({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, take);
              }),
              "enough");
    EXPECT_EQ(taken, 1U);
    EXPECT_EQ(counting->GetCounts().tasksInFlight, 0U);
}

TEST_F(BackupCheckpointBatches, AnEmptyBatchCallsNothing) {
    std::vector<std::string> results;
    Backup(client_)->LoadCheckpoints({}, Into(results));
    EXPECT_THAT(Calls(), testing::IsEmpty());
}

TEST_F(BackupCheckpointBatches, AnInvalidPathIsAFailureOfItsCheckpoint) {
    const CCloudBackup outside("..", COwnerDescriptor(), Guid(8), client_, client_, 0, ErrorHandling::fail);
    std::vector<std::string> results;
    outside.LoadCheckpoints({1, 2}, Into(results));
    ASSERT_EQ(results.size(), 2U);
    EXPECT_THAT(results[1], testing::StartsWith("2: Failed to load checkpoint '2' for cloud backup '..': "));
}

}  // namespace
