#include <random>

#include "tests/library/SessionFixture.h"

/// Random work on a backup, compared with a model that keeps the bytes of every storage at every checkpoint.
namespace test {
namespace {

using snapshot_t = std::map<guid::guid_t, std::string>;

constexpr unsigned seeds = 40;
constexpr unsigned stepsOfASeed = 60;
constexpr std::uint8_t storageCount = 4;

class Model {
public:
    explicit Model(unsigned seed) : random_(seed) {}

    void Step() {
        switch (Roll(12)) {
            case 0:
                return NewStorage();
            case 1:
            case 2:
            case 3:
                return Change([this](StorageWriter& writer) { UpdateBanks(writer); });
            case 4:
                return Change([this](StorageWriter& writer) { AppendBanks(writer); });
            case 5:
                return Change([this](StorageWriter& writer) { Rewrite(writer); });
            case 6:
                return Change([this](StorageWriter& writer) { ResizeLastBank(writer); });
            case 7:
            case 8:
                return Commit();
            case 9:
                return Reopen();
            case 10:
                return CheckSomeCheckpoint();
            default:
                return Rarely();
        }
    }

    void CheckAllCheckpoints() {
        for (const auto& [id, snapshot] : history_) {
            Check(id, snapshot);
        }
    }

private:
    unsigned Roll(unsigned sides) { return std::uniform_int_distribution<unsigned>(0, sides - 1)(random_); }

    std::string Bytes(std::size_t size) {
        std::string bytes(size, '\0');
        for (char& byte : bytes) {
            byte = static_cast<char>(Roll(256));
        }
        return bytes;
    }

    void Rarely() {
        switch (Roll(4)) {
            case 0:
                return DeleteStorage();
            case 1:
                return DeleteCheckpoint();
            case 2:
                return RenameStorage();
            default:
                return Change([](StorageWriter& writer) { writer.Detach(); });
        }
    }

    std::string NewPath() { return folder_ / std::to_string(++paths_); }

    void NewStorage() {
        const guid::guid_t id = Guid(static_cast<std::uint8_t>(Roll(storageCount) + 1));
        if (writers_.contains(id)) {
            return;
        }
        StorageWriter writer(id, NewPath());
        // A storage that comes back does not begin with versions that checkpoints may still refer to.
        writer.version = lastVersions_[id];
        writer.header = Bytes(Roll(20));
        for (unsigned i = Roll(4); i > 0; --i) {
            writer.banks.push_back(Bytes(Roll(30)));
        }
        DropEmptyBanks(writer);
        writer.WriteFile();
        writer.Attach(*session_);
        writer.FlushAll();
        writers_.emplace(id, std::move(writer));
    }

    // Two parts cannot begin at one place.
    static void DropEmptyBanks(StorageWriter& writer) {
        std::erase_if(writer.banks, [](const std::string& bank) { return bank.empty(); });
        if (writer.header.empty()) {
            writer.header = "h";
        }
    }

    template <class Act>
    void Change(const Act& act) {
        if (writers_.empty()) {
            return;
        }
        auto chosen = std::next(writers_.begin(), Roll(static_cast<unsigned>(writers_.size())));
        if (!chosen->second.IsAttached()) {
            chosen->second.TakeSink(*session_);
        }
        act(chosen->second);
    }

    void UpdateBanks(StorageWriter& writer) {
        std::set<std::size_t> updated;
        for (std::size_t i = 0; i < writer.banks.size(); ++i) {
            if (Roll(3) == 0) {
                writer.banks[i] = Bytes(writer.banks[i].size());
                updated.insert(i);
            }
        }
        writer.header = Bytes(writer.header.size());
        writer.Flush(updated);
    }

    void AppendBanks(StorageWriter& writer) {
        std::set<std::size_t> updated;
        for (unsigned i = Roll(3) + 1; i > 0; --i) {
            updated.insert(writer.banks.size());
            writer.banks.push_back(Bytes(Roll(30) + 1));
        }
        writer.Flush(updated);
    }

    void ResizeLastBank(StorageWriter& writer) {
        if (!writer.banks.empty()) {
            writer.banks.back() = Bytes(Roll(40) + 1);
            writer.Flush({writer.banks.size() - 1});
        }
    }

    void Rewrite(StorageWriter& writer) {
        writer.header = Bytes(Roll(40));
        writer.banks.clear();
        for (unsigned i = Roll(6); i > 0; --i) {
            writer.banks.push_back(Bytes(Roll(30)));
        }
        DropEmptyBanks(writer);
        writer.FlushAll();
    }

    void RenameStorage() {
        if (writers_.empty()) {
            return;
        }
        auto chosen = std::next(writers_.begin(), Roll(static_cast<unsigned>(writers_.size())));
        const std::string path = NewPath();
        chosen->second.Detach();
        std::filesystem::rename(chosen->second.GetPath(), path);
        session_->RenameStorage(chosen->first, chosen->second.GetPath(), path);
        chosen->second.SetPath(path);
    }

    void DeleteStorage() {
        if (writers_.empty()) {
            return;
        }
        auto chosen = std::next(writers_.begin(), Roll(static_cast<unsigned>(writers_.size())));
        session_->DeleteStorage(chosen->first);
        EXPECT_FALSE(std::filesystem::exists(chosen->second.GetPath()));
        lastVersions_[chosen->first] = chosen->second.version;
        writers_.erase(chosen);
    }

    void Commit() {
        const auto checkpoint = session_->CreateCheckpoint("content", Roll(4) == 0 ? "long-term" : "");
        snapshot_t& snapshot = history_[checkpoint->GetId()];
        for (const auto& [id, writer] : writers_) {
            snapshot[id] = writer.GetBytes();
        }
        committed_ = writers_;
        for (auto& [id, writer] : committed_) {
            writer.Detach();
        }
        EXPECT_TRUE(session_->EnumChangedStorages().empty());
        Check(checkpoint->GetId(), snapshot);
    }

    void DeleteCheckpoint() {
        if (history_.size() < 2 || !session_->EnumChangedStorages().empty()) {
            return;
        }
        // The last one is where the session stands.
        const auto chosen = std::next(history_.begin(), Roll(static_cast<unsigned>(history_.size() - 1)));
        session_->DeleteCheckpoint(chosen->first);
        history_.erase(chosen);
        CheckAllCheckpoints();
    }

    /// The host starts again: what was not committed is lost, local files are older, newer or gone.
    void Reopen() {
        std::map<guid::guid_t, unsigned long> localVersions;
        for (auto& [id, writer] : writers_) {
            localVersions[id] = writer.version;
            lastVersions_[id] = writer.version;
        }
        session_.reset();
        backup_ = OpenBackup(client_);
        session_ = CCloudBackupSession::StartSession(backup_, backup_->GetLastCheckpointId(), false);
        writers_ = committed_;
        for (auto& [id, writer] : writers_) {
            OpenAgain(writer, localVersions[id]);
        }
    }

    void OpenAgain(StorageWriter& writer, unsigned long localVersion) {
        if (Roll(4) == 0 || !std::filesystem::exists(writer.GetPath())) {
            std::filesystem::remove(writer.GetPath());
            localVersion = 0;
        }
        session_->PrepareStorageForAccess(writer.GetId(), writer.GetPath(), localVersion);
        EXPECT_EQ(ReadFile(writer.GetPath()), writer.GetBytes());
        writer.TakeSink(*session_);
        EXPECT_TRUE(session_->EnumChangedStorages().empty());
    }

    void CheckSomeCheckpoint() {
        if (!history_.empty()) {
            const auto chosen = std::next(history_.begin(), Roll(static_cast<unsigned>(history_.size())));
            Check(chosen->first, chosen->second);
        }
    }

    void Check(unsigned long checkpointId, const snapshot_t& snapshot) {
        const auto session = CCloudBackupSession::StartSession(OpenBackup(client_), checkpointId, true);
        EXPECT_EQ(session->EnumerateStorages().size(), snapshot.size()) << "checkpoint " << checkpointId;
        for (const auto& [id, bytes] : snapshot) {
            EXPECT_EQ(Restore(client_, checkpointId, id), bytes) << "checkpoint " << checkpointId;
        }
    }

    std::mt19937 random_;
    TempDir folder_;
    unsigned paths_ = 0;
    const std::shared_ptr<clients::CMemoryClient> client_ = std::make_shared<clients::CMemoryClient>();
    std::shared_ptr<CCloudBackup> backup_ = CCloudBackup::CreateNew("B", client_, client_, COwnerDescriptor(), Guid(8));
    session_ptr session_ = CCloudBackupSession::StartSession(backup_, 0, false);
    /// The storages as their writers have them, and as the last checkpoint has them.
    std::map<guid::guid_t, StorageWriter> writers_;
    std::map<guid::guid_t, StorageWriter> committed_;
    std::map<guid::guid_t, unsigned long> lastVersions_;
    std::map<unsigned long, snapshot_t> history_;
};

class SessionModel : public testing::TestWithParam<unsigned> {};

TEST_P(SessionModel, EveryCheckpointHasTheBytesItWasMadeWith) {
    SCOPED_TRACE("seed " + std::to_string(GetParam()));
    Model model(GetParam());
    for (unsigned step = 0; step < stepsOfASeed && !HasFailure(); ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        model.Step();
    }
    model.CheckAllCheckpoints();
}

INSTANTIATE_TEST_SUITE_P(Seeds, SessionModel, testing::Range(1U, seeds + 1));

}  // namespace
}  // namespace test
