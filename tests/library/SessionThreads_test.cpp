#include <atomic>
#include <functional>
#include <thread>

#include "cloudclientlib/wrappers/GateClient.h"
#include "tests/library/SessionFixture.h"

namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint8_t writerCount = 8;
constexpr unsigned long partCount = 5;
constexpr unsigned long partSize = 4;
const std::string suspended = "Storage cache is suspended for checkpoint";

/// A writer in a thread of its own, whose bytes never change but which reports part after part as updated.
class ReportingWriter {
public:
    ReportingWriter(CCloudBackupSession& session, std::uint8_t storage, const std::string& localPath)
        : bytes_((partCount + 1) * partSize, static_cast<char>('a' + storage)) {
        WriteFile(localPath, bytes_);
        session.PrepareStorageForAccess(Guid(storage), localPath, 0);
        sink_ = session.GetStorageUpdateSink(Guid(storage), std::make_shared<MemoryExtent>(bytes_));
        for (unsigned long i = 1; i <= partCount; ++i) {
            layout_[i * partSize].Size = partSize;
            layout_[i * partSize].SkipUnlessUpdated = true;
        }
        sink_->Update(1, layout_, layout_, partSize);
    }

    void Run(const std::atomic<bool>& stop) {
        for (unsigned long version = 2; !stop; ++version) {
            const unsigned long offset = (version % partCount + 1) * partSize;
            try {
                sink_->Update(version, {{offset, layout_.at(offset)}}, layout_, partSize);
                lastTaken_ = version;
            } catch (const exc::CRuntimeExc& failure) {
                refusals_.insert(failure.what());
            }
        }
    }

    [[nodiscard]] const std::string& GetBytes() const { return bytes_; }
    [[nodiscard]] unsigned long GetLastTaken() const { return lastTaken_; }
    [[nodiscard]] const std::set<std::string>& GetRefusals() const { return refusals_; }

private:
    const std::string bytes_;
    parts_map_t layout_;
    std::shared_ptr<IMetaUpdateSink> sink_;
    unsigned long lastTaken_ = 1;
    std::set<std::string> refusals_;
};

class SessionThreads : public SessionTest {
protected:
    /// Runs `work` in this thread, `rounds` times, while eight writers report.
    void RunWhileWritersReport(CCloudBackupSession& session, unsigned rounds, const std::function<void()>& work) {
        for (std::uint8_t i = 0; i < writerCount; ++i) {
            writers_.push_back(std::make_unique<ReportingWriter>(session, i, Local(Guid(i))));
        }
        std::atomic<bool> stop{false};
        std::vector<std::thread> threads;
        for (const auto& writer : writers_) {
            threads.emplace_back([&stop, &writer] { writer->Run(stop); });
        }
        for (unsigned round = 0; round < rounds; ++round) {
            work();
        }
        stop = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    void ExpectRestored(unsigned long checkpointId) {
        for (std::uint8_t i = 0; i < writerCount; ++i) {
            EXPECT_EQ(Restore(client_, checkpointId, Guid(i)), writers_[i]->GetBytes());
        }
    }

    std::vector<std::unique_ptr<ReportingWriter>> writers_;
};

TEST_F(SessionThreads, WritersReportWhileTheSessionCommits) {
    const auto session = Start();
    RunWhileWritersReport(*session, 8, [&] {
        EXPECT_EQ(session->EnumerateStorages().size(), writerCount);
        (void)session->EnumChangedStorages();
        session->CreateCheckpoint("", "");
    });
    const auto last = session->CreateCheckpoint("", "");
    for (std::uint8_t i = 0; i < writerCount; ++i) {
        EXPECT_EQ(last->GetStorageById(Guid(i)).GetMetaVersion(), writers_[i]->GetLastTaken());
        for (const std::string& refusal : writers_[i]->GetRefusals()) {
            EXPECT_EQ(refusal, suspended);
        }
    }
    ExpectRestored(1);
    ExpectRestored(last->GetId());
    EXPECT_THAT(session->EnumChangedStorages(), IsEmpty());
}

TEST_F(SessionThreads, MarkingAStorageUpdatedLosesNoReport) {
    const auto session = Start();
    RunWhileWritersReport(*session, 500, [&] {
        for (std::uint8_t i = 0; i < writerCount; ++i) {
            session->MarkStorageUpdated(Guid(i), Local(Guid(i)));
        }
    });
    const auto checkpoint = session->CreateCheckpoint("", "");
    for (std::uint8_t i = 0; i < writerCount; ++i) {
        EXPECT_THAT(writers_[i]->GetRefusals(), IsEmpty()) << "there is a record at every moment";
        EXPECT_EQ(checkpoint->GetStorageById(Guid(i)).GetMetaVersion(), writers_[i]->GetLastTaken());
    }
    ExpectRestored(1);
}

TEST_F(SessionThreads, ReportsAndCommitsDuringACommitAreRefused) {
    const auto gate = std::make_shared<cloudclientlib::CGateClient>(client_);
    backup_ = OpenBackup(gate);
    const auto session = Start();
    StorageWriter writer = Writer(1, "head", {"bank"});
    writer.Attach(*session);
    writer.FlushAll();
    gate->Close();
    std::thread commit([&] { session->CreateCheckpoint("", ""); });
    gate->WaitHeld(2);  // header and part
    EXPECT_EQ(FailureOf([&] { writer.FlushAll(); }), suspended);
    EXPECT_EQ(FailureOf([&] { session->CreateCheckpoint("", ""); }), suspended);
    EXPECT_EQ(FailureOf([&] { (void)session->EnumerateStorages(); }), suspended);
    gate->Open();
    commit.join();
    EXPECT_EQ(Restore(client_, 1, Guid(1)), "headbank");
    EXPECT_NO_THROW(writer.FlushAll()) << "a refused report can be made again";
    EXPECT_THAT(session->EnumChangedStorages(), ElementsAre(Guid(1)));
}

}  // namespace
}  // namespace test
