#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>

#include "agent/run/CheckpointList.h"
#include "agent/run/LongTerm.h"
#include "agent/run/PruneRun.h"
#include "agent/run/RootMetadata.h"
#include "cloudbackuplib/CloudPaths.h"
#include "tests/agent/AgentFixture.h"
#include "tests/faults/FaultSweep.h"

/// Blocks that are written anew: what that gains, and that no checkpoint is harmed wherever it is cut off.
namespace agent {
namespace {

using namespace test;
namespace backup = cloudbackuplib::backup;

class Repack : public testing::Test {
protected:
    Repack() {
        options_.location = "dir:" + (dir_ / "nothing");
        options_.stateFolder = dir_ / "state";
        options_.keys.noEncryption = true;  // an Argon2id at every step would be all the sweep does
        MakePrivateFolders(dir_ / "nothing");
        MakePrivateFolders(Source());
        On(base_);
        CreateRepository(options_);
        for (const char name : std::string("abcdef")) {
            Write(std::string(1, name), Noise(static_cast<unsigned>(name)));
        }
        Backup();
        for (const char name : std::string("abcd")) {
            std::filesystem::remove(Source() + "/" + name);
        }
        Write("g", Noise(1000));
        Backup();
        Write("h", "of generation 3");
        Backup();
        std::filesystem::remove(Source() + "/e");
        Backup();
        CSetUpkeep upkeep(options_, CSetUpkeep::EMode::change);
        KeepForLongTerm(upkeep, "3");
        upkeep.GetBackup().DeleteCheckpoints({1});
    }

    [[nodiscard]] std::string Source() const { return dir_ / "source"; }
    /// A file that is a chunk or more of its own.
    static std::string Noise(unsigned seed) {
        std::mt19937 generator(seed);
        std::string bytes(200'000, '\0');
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(generator()); });
        return bytes;
    }
    void Write(const std::string& name, const std::string& content) const {
        std::ofstream(Source() + "/" + name, std::ios::binary) << content;
    }
    static trouble_sink_t Ignore() {
        return [](const STrouble&) {};
    }
    void Backup() {
        SBackupOptions what;
        what.sources = {Source()};
        states_[RunBackup(options_, what, {}).checkpoint] = ReadTree(Source());
    }
    using tree_t = std::map<std::string, std::string>;
    static tree_t ReadTree(const std::string& folder) {
        tree_t tree;
        for (const auto& entry : std::filesystem::directory_iterator(folder)) {
            std::ifstream file(entry.path(), std::ios::binary);
            tree[entry.path().filename()] = {std::istreambuf_iterator<char>(file), {}};
        }
        return tree;
    }
    void On(const std::shared_ptr<cloudclientlib::ICloudClient>& client) {
        options_.wrapStore = [client](const auto&) { return client; };
    }

    SPrunePlan Prune(const std::string& limit = "0") {
        CSetUpkeep upkeep(options_, CSetUpkeep::EMode::change);
        SPruneOptions options;
        options.maxUnused = SUnusedLimit::FromText(limit);
        return RunPrune(upkeep, options, Ignore());
    }
    SPrunePlan Look(const std::string& limit = "0") {
        CSetUpkeep upkeep(options_, CSetUpkeep::EMode::look);
        SPruneOptions options;
        options.maxUnused = SUnusedLimit::FromText(limit);
        return PlanPrune(upkeep, options, Ignore());
    }
    std::vector<SCheckpointInfo> List() {
        auto repository = COpenedRepository::Open4Read(options_);
        return ListCheckpoints(repository);
    }

    void CheckRestores(std::uint64_t id) {
        const std::string target = dir_ / ("restored-" + std::to_string(++restores_));
        const auto result = RunRestore(options_, std::to_string(id), target, Ignore());
        EXPECT_EQ(result.statistics.errors, 0U);
        EXPECT_EQ(ReadTree(target + Source()), states_.at(id)) << "checkpoint " << id;
        std::filesystem::remove_all(target);
    }
    std::uint64_t CountErrors(std::uint64_t id) {
        const std::string target = dir_ / ("restored-" + std::to_string(++restores_));
        return RunRestore(options_, std::to_string(id), target, Ignore()).statistics.errors;
    }
    void CheckWhole(const store_ptr& store) {
        On(store);
        for (const std::uint64_t id : {2U, 3U, 4U}) {
            CheckRestores(id);
        }
    }
    /// Nothing is left over, nothing is wasted, and the long-term copy alone restores as well.
    void CheckDone(const store_ptr& store) {
        On(store);
        const auto plan = Look();
        EXPECT_EQ(plan.checkpoints, (std::vector<std::uint64_t>{2, 3, 4}));
        EXPECT_EQ(plan.Removed(), SObjectCount{}) << "nothing is left over";
        EXPECT_EQ(plan.missingBlocks, 0U);
        EXPECT_LT(plan.unusedBytes, 100U);
        auto cloudBackup = COpenedRepository::Open4Upkeep(options_).OpenBackup4Read();
        cloudBackup->GetBackupClient()
            ->DeleteFileAsync(backup::paths::GetCheckpointPath(cloudBackup->GetBackupId(), 3))
            ->Wait();
        CheckRestores(3);
    }

    TempDir dir_;
    SRepositoryOptions options_;
    const store_ptr base_ = std::make_shared<clients::CMemoryClient>();
    std::map<std::uint64_t, tree_t> states_;
    int restores_ = 0;
};

TEST_F(Repack, FreesWhatNothingNeedsAndKeepsTheNumbers) {
    const auto before = Look();
    EXPECT_EQ(before.Removed().objects, 0U);
    EXPECT_GT(before.unusedBytes, 500'000U)
        << "four files of 200,000 bytes, incompressible, but for chunks that reach into others";
    EXPECT_EQ(before.repack.blockCount, 1U);
    EXPECT_EQ(before.repack.checkpoints, (std::set<std::uint64_t>{2, 3, 4}));
    EXPECT_EQ(before.repack.freedBytes, before.unusedBytes);
    const auto listed = List();

    const auto done = Prune();
    EXPECT_EQ(done.repack.blockCount, 1U);
    EXPECT_EQ(done.blocksRemoved.objects, 1U);
    EXPECT_EQ(done.unusedBytes, 0U);
    EXPECT_EQ(done.blocksKept.bytes, before.blocksKept.bytes - before.unusedBytes);

    const auto after = List();
    ASSERT_EQ(after.size(), listed.size());
    for (std::size_t i = 0; i < after.size(); ++i) {
        SSetDocument document = after[i].document;
        EXPECT_NE(document.roots.at(0).headerSha256, listed[i].document.roots.at(0).headerSha256);
        document.roots.at(0).headerSha256 = listed[i].document.roots.at(0).headerSha256;
        EXPECT_EQ(document, listed[i].document) << "only the metadata is another";
        EXPECT_EQ(after[i].isLongTerm, listed[i].isLongTerm);
    }
    CheckWhole(base_);
    CheckDone(base_);
}

TEST_F(Repack, TheLimitDecides) {
    EXPECT_TRUE(Prune("unlimited").repack.IsEmpty());
    EXPECT_TRUE(Prune("90%").repack.IsEmpty());
    EXPECT_TRUE(Prune("2M").repack.IsEmpty());
    EXPECT_FALSE(Prune("10%").repack.IsEmpty());
    EXPECT_TRUE(Prune("10%").repack.IsEmpty());
}

TEST_F(Repack, VersionsGoOnSharingTheirBanks) {
    const auto done = Prune();
    EXPECT_EQ(done.metadataKept.objects, 6U) << "three headers, one bank that is whole, two of what changed";
}

TEST_F(Repack, TheNextBackupBuildsOnIt) {
    (void)Prune();
    const auto local = [&](const SRoot& root) {
        auto repository = COpenedRepository::Open4Write(options_);
        return LocalMetaVersion(LocalMetaPath(repository.GetSetFolder(), root.storageId), root);
    };
    EXPECT_NE(local(List().back().document.roots.at(0)), 0U) << "and needs no download for it";
    Write("i", Noise(77));
    Backup();
    CheckWhole(base_);
    CheckRestores(5);
    std::filesystem::remove(Source() + "/f");
    Backup();
    CheckRestores(6);
    EXPECT_EQ(Prune().missingBlocks, 0U);
    CheckWhole(base_);
}

TEST_F(Repack, AnotherMachineCanDoIt) {
    std::filesystem::remove_all(dir_ / "state");
    options_.client = COpenedRepository::Open4Read(options_).GetClientId().ToAStr();
    CSetUpkeep upkeep(options_, CSetUpkeep::EMode::change);
    ASSERT_TRUE(upkeep.IsForOtherMachine());
    SPruneOptions options;
    options.maxUnused = SUnusedLimit::FromText("0");
    options.minAge = std::chrono::seconds(0);
    EXPECT_EQ(RunPrune(upkeep, options, Ignore()).blocksRemoved.objects, 1U);
    CheckWhole(base_);
}

TEST_F(Repack, ADamagedChunkStaysWhereItIs) {
    auto cloudBackup = COpenedRepository::Open4Read(options_).OpenBackup4Read();
    const auto plan = Look();
    const auto& [storageId, names] = *plan.repack.blocks.begin();
    const std::string path = backup::paths::GetBackupBlockPath(cloudBackup->GetBackupId(), storageId,
                                                               backup::paths::DigestToBlockName(*names.begin()));
    const auto bytes = std::make_shared<cnt::array_t<char>>();
    cloudBackup->GetBackupClient()->DownloadFileAsync(path, bytes)->Wait();
    bytes->at(bytes->size() - 10) ^= 1;
    cloudBackup->GetBackupClient()->UploadFileAsync(path, bytes)->Wait();
    const auto errors = CountErrors(2);
    EXPECT_GT(errors, 0U);

    std::vector<std::string> told;
    {
        CSetUpkeep upkeep(options_, CSetUpkeep::EMode::change);
        SPruneOptions options;
        options.maxUnused = SUnusedLimit::FromText("0");
        const auto done = RunPrune(
            upkeep, options, [&](const STrouble& trouble) { told.push_back(trouble.path + ": " + trouble.reason); });
        EXPECT_EQ(done.blocksRemoved.objects, 0U) << "the damaged chunk's block is still named";
    }
    ASSERT_EQ(told.size(), 1U);
    EXPECT_THAT(told.front(),
                testing::AllOf(testing::HasSubstr(path), testing::HasSubstr("cannot be read, so the block stays")));
    EXPECT_EQ(CountErrors(2), errors) << "no more is lost than was";
}

TEST_F(Repack, ALongTermCopyThatFellBehindIsWrittenAnew) {
    auto cloudBackup = COpenedRepository::Open4Upkeep(options_).OpenBackup4Write();
    const std::string path = backup::paths::GetCheckpointLongTermPath(cloudBackup->GetBackupId(), 3);
    const auto old = std::make_shared<cnt::array_t<char>>();
    cloudBackup->GetBackupClient()->DownloadFileAsync(path, old)->Wait();
    (void)Prune();
    cloudBackup->GetBackupClient()->UploadFileAsync(path, old)->Wait();  // as if the cut had been there
    (void)Prune();
    CheckDone(base_);
}

TEST_F(Repack, EveryCallMayFail) {
    auto kinds = cloudclientlib::StoreOperations();
    kinds.erase(cloudclientlib::EOperation::queryFolder);  // hundreds, and all alike
    const std::filesystem::path state = dir_ / "state";
    const std::filesystem::path saved = dir_ / "saved-state";
    std::filesystem::copy(state, saved, std::filesystem::copy_options::recursive);
    const auto result =
        RunSweep(base_, {.prepare = [&](const faults_ptr& faults) -> std::function<void()> {
                             // This machine's copies are those of before, too.
                             std::filesystem::remove_all(state);
                             std::filesystem::copy(saved, state, std::filesystem::copy_options::recursive);
                             return [this, faults] {
                                 On(faults);
                                 (void)Prune();
                             };
                         },
                         .check = [this](const store_ptr& store) { CheckWhole(store); },
                         .retry =
                             [this](const store_ptr& store) {
                                 On(store);
                                 (void)Prune();
                             },
                         .checkDone = [this](const store_ptr& store) { CheckDone(store); },
                         .kinds = kinds,
                         .step = longSweepStep});
    EXPECT_GT(result.calls, 25U);
    EXPECT_GT(result.reported, 100U / longSweepStep);
}

}  // namespace
}  // namespace agent
