#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "cloudclientlib/wrappers/CountingClient.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "cloudclientlib/wrappers/ForwardingClient.h"
#include "tests/library/BackupFixture.h"

namespace {

using namespace test;
using cloudclientlib::CFaultClient;
using cloudclientlib::EFaultMode;
using logging::level_t;
using testing::ElementsAre;
using testing::StartsWith;

const std::string name = "00000000-0000-0000-0000-000000000001.7";
const std::string item = "/B/Metadata/" + name;
const std::string bank4 = item + "_metaparts/4";
const std::string bank8 = item + "_metaparts/8";

std::string SizeDiffers(unsigned long downloaded, unsigned long declared) {
    return "Downloaded storage size differs from declared. StorageId: [00000000-0000-0000-0000-000000000001], "
           "downloaded: [" +
           std::to_string(downloaded) + "], declared: [" + std::to_string(declared) + "]";
}

class BackupDownload : public BackupTest {
protected:
    void SetUp() override {
        Put(*client_, item, "head");
        Put(*client_, bank4, "bank");
        Put(*client_, bank8, "more bytes");
        client_->ClearCalls();
        Write("what was there before, longer than all that comes");
    }

    void Write(const std::string& text) const { std::ofstream(localPath_, std::ios::trunc) << text; }
    [[nodiscard]] std::string Local() const {
        std::ifstream file(localPath_);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    static CCloudStorageDescriptor Whole() {
        return Storage(Guid(1), 7, 18, {{4, {bank4, 4, 4}}, {8, {bank8, 8, 10}}});
    }

    [[nodiscard]] std::string FailedDownload(const CCloudStorageDescriptor& storage) const {
        return FailureOf([&] { backup_->DonwloadStorageMeta(storage, localPath_); });
    }

    /// The download fails with this text inside, and nothing that looks whole is left.
    void ExpectFailure(const CCloudStorageDescriptor& storage, const std::string& reason) const {
        Write("what was there before");
        EXPECT_EQ(FailedDownload(storage), failed_ + reason);
        EXPECT_EQ(Local(), "");
    }

    const TempDir folder_;
    const std::string localPath_ = folder_ / "meta";
    const std::string failed_ =
        "Failed to download storage metadata '" + name + "' from cloud. Local path: '" + localPath_ + "': ";
    const std::shared_ptr<CCloudBackup> backup_ = Backup(client_);
};

TEST_F(BackupDownload, RebuildsTheLocalFile) {
    backup_->DonwloadStorageMeta(Whole(), localPath_);
    EXPECT_EQ(Local(), "headbankmore bytes");
    EXPECT_THAT(Calls(), ElementsAre("DownloadFile " + item, "DownloadFile " + bank4, "DownloadFile " + bank8));
    EXPECT_THAT(sink_.GetTexts(level_t::tr), ElementsAre("Downloading storage metadata '" + name +
                                                         "' from cloud. Local path: '" + localPath_ + "'"));
    EXPECT_THAT(sink_.GetTexts(level_t::info),
                ElementsAre("Saving local storage metadata header. Size: '4'",
                            "Downloading additional metadata parts for storage " + name,
                            "Downloading bank '" + bank4 + "' for storage '" + name + "'",
                            "Saving local storage metadata part. Size: '4', offset: '4'",
                            "Downloading bank '" + bank8 + "' for storage '" + name + "'",
                            "Saving local storage metadata part. Size: '10', offset: '8'"));
    EXPECT_THAT(Sections(), ElementsAre("library"));
}

TEST_F(BackupDownload, CreatesAMissingFile) {
    std::filesystem::remove(localPath_);
    backup_->DonwloadStorageMeta(Storage(Guid(1), 7, 4), localPath_);
    EXPECT_EQ(Local(), "head");
}

TEST_F(BackupDownload, OneDownloadAtATime) {
    const auto counting = std::make_shared<cloudclientlib::CCountingClient>(client_);
    Backup(counting)->DonwloadStorageMeta(Whole(), localPath_);
    EXPECT_EQ(counting->GetCounts().mostTasksInFlight, 1U);
    EXPECT_EQ(counting->GetCounts().Total(), 3U);
}

TEST_F(BackupDownload, BringsBackWhatACommitUploaded) {
    Put(*client_, "/B/Metadata/old", "kept");
    const auto created = backup_->CreateCheckpoint(
        {"",
         "",
         {},
         {{Storage(Guid(1), 9, 12, {{4, {"/B/Metadata/old", 4, 4}}}), {{0, Part("HEAD")}, {8, Part("BANK")}}}}});
    backup_->DonwloadStorageMeta(backup_->LoadCheckpoint(created->GetId())->GetStorageById(Guid(1)), localPath_);
    EXPECT_EQ(Local(), "HEADkeptBANK");
}

TEST_F(BackupDownload, BringsBackSingleFileMetadata) {
    options_t::GetInst().EnableSingleFileCloudMetadata(true);
    const auto created = backup_->CreateCheckpoint({"", "", {}, {{Storage(Guid(1), 9, 5), {{0, Part("whole")}}}}});
    backup_->DonwloadStorageMeta(backup_->LoadCheckpoint(created->GetId())->GetStorageById(Guid(1)), localPath_);
    EXPECT_EQ(Local(), "whole");
}

TEST_F(BackupDownload, AMissingHeader) {
    client_->DeleteFileAsync(item)->Wait();
    ExpectFailure(Whole(), "DownloadFile '" + item + "': object not found");
}

TEST_F(BackupDownload, AMissingBank) {
    client_->DeleteFileAsync(bank8)->Wait();
    ExpectFailure(Whole(), "Cannot download bank blob [" + bank8 + "] for storage [" + name + "]: DownloadFile '" +
                               bank8 + "': object not found");
}

TEST_F(BackupDownload, AGapBeforeABank) {
    ExpectFailure(Storage(Guid(1), 7, 18, {{5, {bank4, 5, 4}}}),
                  "Mismatch between file position [4] and next bank offset [5]");
}

TEST_F(BackupDownload, AnOverlapOfBanks) {
    ExpectFailure(Storage(Guid(1), 7, 18, {{4, {bank4, 4, 4}}, {7, {bank8, 7, 10}}}),
                  "Mismatch between file position [8] and next bank offset [7]");
}

TEST_F(BackupDownload, WhereBanksLieCountsNotTheSizesTheyAreSaidToHave) {
    for (const unsigned long size : {3UL, 5UL, ~0UL}) {
        backup_->DonwloadStorageMeta(Storage(Guid(1), 7, 18, {{4, {bank4, 4, size}}, {8, {bank8, 8, 10}}}), localPath_);
        EXPECT_EQ(Local(), "headbankmore bytes");
    }
}

TEST_F(BackupDownload, ABankOfAnotherSizeThanWasUploaded) {
    Put(*client_, bank4, "ban");
    ExpectFailure(Whole(), "Mismatch between file position [7] and next bank offset [8]");
    Put(*client_, bank4, "bank");
    Put(*client_, bank8, "less");
    ExpectFailure(Whole(), SizeDiffers(12, 18));
}

TEST_F(BackupDownload, ATotalThatIsNotTheDeclaredOne) {
    const cloud_parts_map_t banks = {{4, {bank4, 4, 4}}, {8, {bank8, 8, 10}}};
    for (const unsigned long declared : {19UL, 17UL, 10UL}) {
        ExpectFailure(Storage(Guid(1), 7, declared, banks), SizeDiffers(18, declared));
    }
}

TEST_F(BackupDownload, ATotalIsComparedWhenAllIsWritten) {
    ExpectFailure(Storage(Guid(1), 7, 3), SizeDiffers(4, 3));
    ExpectFailure(Storage(Guid(1), 7, 0), SizeDiffers(4, 0));
    const RecordingSink sink;
    ExpectFailure(Storage(Guid(1), 7, 3, {{4, {bank4, 4, 4}}, {8, {bank8, 8, 10}}}), SizeDiffers(18, 3));
    EXPECT_TRUE(sink.Has("Saving local storage metadata part. Size: '10', offset: '8'"));
}

/// Keeps the buffers that downloads were asked to fill, and what the first one held.
class CBufferClient : public cloudclientlib::CForwardingClient {
public:
    using CForwardingClient::CForwardingClient;
    using CForwardingClient::DownloadFileAsync;
    task::task_ptr DownloadFileAsync(const std::string& path, buffer_ptr buffer) override {
        if (buffers.empty()) {
            first = *buffer;
        }
        buffers.insert(buffer);
        return CForwardingClient::DownloadFileAsync(path, buffer);
    }
    std::set<buffer_ptr> buffers;
    cnt::array_t<char> first;
};

TEST_F(BackupDownload, OneBufferOfTheDeclaredSizeReceivesEverything) {
    const auto client = std::make_shared<CBufferClient>(client_);
    Backup(client)->DonwloadStorageMeta(Whole(), localPath_);
    EXPECT_EQ(client->buffers.size(), 1U);
    EXPECT_EQ(client->first, cnt::array_t<char>(18, '\0'));
}

TEST_F(BackupDownload, ALargeBufferGrowsOnlyWithWhatComes) {
    const auto client = std::make_shared<CBufferClient>(client_);
    EXPECT_THROW(Backup(client)->DonwloadStorageMeta(Storage(Guid(1), 7, 1UL << 40U), localPath_), exc::CRuntimeExc);
    EXPECT_EQ(client->first.size(), 1U << 20U);
}

TEST_F(BackupDownload, AClaimedSizeCostsNoMemory) {
    for (const unsigned long declared : {1UL << 60U, ~0UL}) {
        ExpectFailure(Storage(Guid(1), 7, declared, {{4, {bank4, 4, 4}}}), SizeDiffers(8, declared));
    }
}

TEST_F(BackupDownload, EveryCloudFailureLeavesAnEmptyFile) {
    for (const auto mode : {EFaultMode::notDone, EFaultMode::doneButFailed, EFaultMode::doneInPart}) {
        for (const unsigned call : {1U, 2U, 3U}) {
            const auto faults = std::make_shared<CFaultClient>(client_);
            faults->Arm({.call = call, .mode = mode});
            Write("what was there before");
            EXPECT_THAT(FailureOf([&] { Backup(faults)->DonwloadStorageMeta(Whole(), localPath_); }),
                        StartsWith(failed_));
            EXPECT_EQ(Local(), "");
        }
    }
}

TEST_F(BackupDownload, ANameThatLeavesTheFolderIsRefusedByTheClient) {
    const CCloudStorageDescriptor storage(Guid(1), "../../x", 7, 4, CloudStorageBlockStoreSchema::legacy, {});
    EXPECT_THAT(FailedDownload(storage), StartsWith("Failed to download storage metadata '../../x' from cloud. "));
    EXPECT_EQ(Local(), "");
}

TEST_F(BackupDownload, AFileThatCannotBeOpened) {
    const std::string nowhere = folder_ / "missing/meta";
    EXPECT_THAT(FailureOf([&] { backup_->DonwloadStorageMeta(Whole(), nowhere); }),
                StartsWith("Failed to download storage metadata '" + name + "' from cloud. Local path: '" + nowhere +
                           "': Cannot open for writing '" + nowhere + "': "));
    EXPECT_THAT(Calls(), testing::IsEmpty());
}

/// While it lives this process's files cannot grow past a size.
class CFileSizeLimit {
public:
    explicit CFileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    CFileSizeLimit(const CFileSizeLimit&) = delete;
    CFileSizeLimit& operator=(const CFileSizeLimit&) = delete;
    ~CFileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }

private:
    rlimit before_{};
    void (*const handler_)(int);
};

TEST_F(BackupDownload, AFullDisk) {
    std::string failure;
    {
        const CFileSizeLimit limit(6);
        failure = FailedDownload(Whole());
    }
    EXPECT_THAT(failure, StartsWith(failed_ + "Cannot write '" + localPath_ + "': "));
    EXPECT_EQ(Local(), "");
}

TEST_F(BackupDownload, AFileThatCannotBeEmptied) {
    // A device has no length to change.
    EXPECT_THAT(FailureOf([&] { backup_->DonwloadStorageMeta(Whole(), "/dev/null"); }),
                StartsWith("Failed to download storage metadata '" + name + "' from cloud. Local path: '/dev/null': "));
    ASSERT_EQ(sink_.GetTexts(level_t::warn).size(), 1U);
    EXPECT_THAT(sink_.GetTexts(level_t::warn).front(),
                StartsWith("Cannot empty the local storage metadata '/dev/null': "));
    EXPECT_THAT(Sections(), ElementsAre("library"));
}

}  // namespace
