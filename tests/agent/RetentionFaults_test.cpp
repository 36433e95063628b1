#include "agent/run/ForgetRun.h"

#include <array>
#include <filesystem>
#include <fstream>

#include "agent/run/PruneRun.h"
#include "tests/agent/AgentFixture.h"
#include "tests/faults/FaultSweep.h"

/// Forget and prune while the store fails at every one of their calls, in every way: no checkpoint that is kept is ever
/// harmed, and the same again finishes.
namespace agent {
namespace {

using namespace test;

class RetentionFaults : public testing::Test {
protected:
    RetentionFaults() {
        options_.location = "dir:" + (dir_ / "nothing");
        options_.stateFolder = dir_ / "state";
        options_.keys.noEncryption = true;  // an Argon2id at every step would be all the sweep does
        MakePrivateFolders(dir_ / "nothing");
        MakePrivateFolders(Source());
        On(base_);
        CreateRepository(options_);
        for (int generation = 1; generation <= 4; ++generation) {
            Write("changes", std::string(3000, static_cast<char>('a' + generation)));
            Write("only-" + std::to_string(generation), "of generation " + std::to_string(generation));
            std::filesystem::remove(Source() + "/only-" + std::to_string(generation - 1));
            Backup();
            states_[static_cast<std::uint64_t>(generation)] = ReadTree();
        }
    }

    [[nodiscard]] std::string Source() const { return dir_ / "source"; }
    void Write(const std::string& name, const std::string& content) const {
        std::ofstream(Source() + "/" + name, std::ios::binary) << content;
    }
    static trouble_sink_t Ignore() {
        return [](const STrouble&) {};
    }

    void Backup() {
        SBackupOptions what;
        what.sources = {Source()};
        (void)RunBackup(options_, what, {});
    }

    /// The names of the source's files with their content.
    using tree_t = std::map<std::string, std::string>;
    [[nodiscard]] tree_t ReadTree(const std::string& folder) const {
        tree_t tree;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            std::ifstream file(entry.path(), std::ios::binary);
            tree[entry.path().filename()] = {std::istreambuf_iterator<char>(file), {}};
        }
        return tree;
    }
    [[nodiscard]] tree_t ReadTree() const { return ReadTree(Source()); }

    /// From now on in this store.
    void On(const std::shared_ptr<cloudclientlib::ICloudClient>& client) {
        options_.wrapStore = [client](const auto&) { return client; };
    }

    std::set<unsigned long> Checkpoints() {
        return COpenedRepository::Open4Read(options_).OpenBackup4Read()->EnumCheckpointsImpl(
            cloudbackuplib::backup::CheckpointFilter::all);
    }

    /// Every checkpoint that is listed comes back whole; those that are kept are listed.
    void CheckWhole(const store_ptr& store) {
        On(store);
        const auto ids = Checkpoints();
        EXPECT_TRUE(ids.contains(4) && ids.contains(3));
        for (const auto id : ids) {
            const std::string target = dir_ / ("restored-" + std::to_string(++restores_));
            const auto result = RunRestore(options_, std::to_string(id), target, Ignore());
            EXPECT_EQ(result.statistics.errors, 0U);
            EXPECT_EQ(ReadTree(target + Source()), states_.at(id)) << "checkpoint " << id;
            std::filesystem::remove_all(target);
        }
    }

    void CheckDone(const store_ptr& store) {
        On(store);
        EXPECT_THAT(Checkpoints(), testing::ElementsAre(3, 4));
        CSetUpkeep upkeep(options_, CSetUpkeep::EMode::look);
        const auto plan = PlanPrune(upkeep, {}, Ignore());
        EXPECT_EQ(plan.Removed(), SObjectCount{}) << "nothing is left over";
        EXPECT_EQ(plan.missingBlocks, 0U);
    }

    void Forget() {
        CSetUpkeep upkeep(options_, CSetUpkeep::EMode::change);
        SForgetOptions forget;
        forget.rules.last = 2;
        if (ExecuteForget(upkeep, PlanForget(upkeep, forget), forget, Ignore()) != 0) {
            throw exc::CRuntimeExc("not all are forgotten");
        }
    }
    void Prune() {
        CSetUpkeep upkeep(options_, CSetUpkeep::EMode::change);
        ExecutePrune(upkeep, PlanPrune(upkeep, {}, Ignore()), {});
    }

    SSweepResult Sweep(const std::function<void()>& operation, const cloudclientlib::operation_set& kinds) {
        return RunSweep(base_, {.prepare = [&, operation](const faults_ptr& faults) -> std::function<void()> {
                                    return [this, operation, faults] {
                                        On(faults);
                                        operation();
                                    };
                                },
                                .check = [this](const store_ptr& store) { CheckWhole(store); },
                                .retry =
                                    [&, operation](const store_ptr& store) {
                                        On(store);
                                        Forget();
                                        Prune();
                                    },
                                .checkDone = [this](const store_ptr& store) { CheckDone(store); },
                                .kinds = kinds,
                                .step = longSweepStep});
    }

    /// Listings are hundreds, and all alike.
    static cloudclientlib::operation_set AllButListings() {
        auto kinds = cloudclientlib::StoreOperations();
        kinds.erase(cloudclientlib::EOperation::queryFolder);
        return kinds;
    }

    TempDir dir_;
    SRepositoryOptions options_;
    const store_ptr base_ = std::make_shared<clients::CMemoryClient>();
    std::map<std::uint64_t, tree_t> states_;
    int restores_ = 0;
};

TEST_F(RetentionFaults, ForgetAndPrune) {
    const auto result = Sweep(
        [this] {
            Forget();
            Prune();
        },
        AllButListings());
    EXPECT_GT(result.calls, 20U);
    EXPECT_GT(result.reported, 100U / longSweepStep);
}

TEST_F(RetentionFaults, PruneReadsBeforeItDeletes) {
    Forget();
    const auto faults = std::make_shared<cloudclientlib::CFaultClient>(base_);
    for (const std::uint64_t call : std::array<std::uint64_t, 7>{1, 2, 3, 100, 256, 257, 258}) {
        On(faults);
        const auto objects = base_->GetObjectCount("");
        faults->Arm({.call = call, .kinds = {cloudclientlib::EOperation::queryFolder}});
        EXPECT_THROW(Prune(), std::exception) << call;
        EXPECT_TRUE(faults->IsReached());
        faults->Disarm();
        EXPECT_EQ(base_->GetObjectCount(""), objects) << "nothing is deleted before all is known";
    }
    On(base_);
    Prune();
    CheckWhole(base_);
    CheckDone(base_);
}

TEST_F(RetentionFaults, ACheckpointMadeMeanwhileEndsAPrune) {
    On(base_);
    Forget();
    CSetUpkeep upkeep(options_, CSetUpkeep::EMode::change);
    auto plan = PlanPrune(upkeep, {}, Ignore());
    plan.checkpoints.pop_back();  // as if the last one had come since
    EXPECT_THROW(ExecutePrune(upkeep, plan, {}), exc::CRuntimeExc);
    EXPECT_GT(PlanPrune(upkeep, {}, Ignore()).Removed().objects, 0U);
}

TEST_F(RetentionFaults, ASetIsHeldWhileItIsLookedAfter) {
    On(base_);
    CSetUpkeep upkeep(options_, CSetUpkeep::EMode::change);
    EXPECT_THROW(Backup(), exc::CRuntimeExc);
    EXPECT_THROW(CSetUpkeep(options_, CSetUpkeep::EMode::change), exc::CRuntimeExc);
    EXPECT_NO_THROW(CSetUpkeep(options_, CSetUpkeep::EMode::look));
}

}  // namespace
}  // namespace agent
