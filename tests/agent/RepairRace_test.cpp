#include <atomic>
#include <filesystem>

#include "agent/check/RepairRun.h"
#include "cloudclientlib/wrappers/InterceptingClient.h"
#include "tests/agent/AgentFixture.h"

namespace agent {
namespace {

namespace fs = std::filesystem;
namespace cloud = cloudclientlib;

/// Counts the calls, and does something of its own before one of them.
class CBeforeCall : public cloud::IInterceptor {
public:
    CBeforeCall(std::uint64_t call, std::function<void()> action) : call_(call), action_(std::move(action)) {}

    [[nodiscard]] std::uint64_t GetCount() const { return count_; }

    task::task_ptr OnTask(const cloud::SInterceptedCall&, start_t start) override {
        Count();
        return start();
    }
    void OnCall(const cloud::SInterceptedCall&, const run_t& run) override {
        Count();
        run();
    }
    std::shared_ptr<cloud::IDownloadStream> WrapDownload(const std::string&,
                                                         std::shared_ptr<cloud::IDownloadStream> inner) override {
        return inner;
    }
    std::shared_ptr<cloud::IUploadStream> WrapUpload(const std::string&,
                                                     std::shared_ptr<cloud::IUploadStream> inner) override {
        return inner;
    }

private:
    void Count() {
        if (++count_ == call_) {
            action_();
        }
    }

    const std::uint64_t call_;
    const std::function<void()> action_;
    std::atomic<std::uint64_t> count_ = 0;
};

using RepairRace = AgentTest;

TEST_F(RepairRace, NothingIsMadeOfCheckpointsThatAnotherMachineHasAddedTo) {
    WriteFile("file", RandomBytes(3U << 20U, 1));
    Backup();
    fs::remove(Objects("/BlockStore/").front());
    fs::copy(options_.stateFolder, dir_ / "clone", fs::copy_options::recursive);
    SRepositoryOptions clone = options_;
    clone.stateFolder = dir_ / "clone";
    const auto backUp = [&] { (void)RunBackup(clone, std::vector<std::string>{Source()}, {}); };
    const auto intercept = [&](std::uint64_t call) {
        auto interceptor = std::make_shared<CBeforeCall>(call, backUp);
        options_.wrapStore = [interceptor](std::shared_ptr<cloud::ICloudClient> client) {
            return std::make_shared<cloud::CInterceptingClient>(std::move(client), interceptor);
        };
        return interceptor;
    };
    SRepairOptions options;
    options.useSource = false;
    options.dryRun = true;
    const auto dry = intercept(0);
    EXPECT_EQ(RunRepair(options_, options).roots.size(), 1U);
    options.dryRun = false;
    intercept(dry->GetCount());  // the last call before the checkpoint is made
    try {
        (void)RunRepair(options_, options);
        FAIL() << "no exception";
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_EQ(failure.GetMessage(),
                  "Another run has changed the checkpoints of set 'default' while this one was under way: no "
                  "checkpoint was made, repair again");
    }
    EXPECT_EQ(Objects("/Metadata/Checkpoint/").size(), 2U);
    intercept(0);
    EXPECT_EQ(RunRepair(options_, options).checkpoint, 3U);
}

}  // namespace
}  // namespace agent
