#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "tests/faults/BackupModel.h"
#include "tests/faults/FaultSweep.h"
#include "tests/library/SessionFixture.h"

/// What the fault sweeps of sessions share.
namespace test {

/// One operation on objects that were opened through the client that will fail.
struct SAttempt {
    std::function<void()> operation;
    /// After a failure, with the client working again; the objects are the same.
    std::function<void()> afterFailure;
};

/// Fails the first call, then the second, and so on, in every way, each on a copy of the store. Returns how many calls
/// the operation makes when none fails.
inline std::uint64_t SweepSession(const store_ptr& base,
                                  const std::function<SAttempt(const store_ptr&, const faults_ptr&)>& prepare) {
    std::uint64_t calls = 0;
    for (const auto& way : AllFaultWays()) {
        bool reached = true;
        for (std::uint64_t call = 1; reached; ++call) {
            SCOPED_TRACE("call " + std::to_string(call) + ", " + way.ToAStr());
            const store_ptr store = base->Clone();
            const auto faults = std::make_shared<cloudclientlib::CFaultClient>(store);
            const SAttempt attempt = prepare(store, faults);
            faults->Arm({.call = call, .mode = way.mode, .crash = way.crash});
            const bool failed = FailureOf(attempt.operation) != "no failure";
            reached = faults->IsReached();
            EXPECT_EQ(failed, reached) << "no failure of the store is ignored";
            faults->Disarm();
            if (failed) {
                attempt.afterFailure();
            }
            if (testing::Test::HasFailure()) {
                return 0;  // one broken step says enough
            }
            calls = call - 1;
        }
    }
    return calls;
}

/// A backup whose first checkpoint has four storages of a header and two banks; the second changes two of them.
class SessionFaults : public testing::Test {
protected:
    using writers_t = std::map<std::uint8_t, StorageWriter>;

    /// A session of a host of its own, with its local files.
    struct SHost {
        TempDir folder;
        std::shared_ptr<CCloudBackup> backup;
        session_ptr session;
        writers_t writers;
    };
    using host_ptr = std::shared_ptr<SHost>;

    void SetUp() override {
        (void)CCloudBackup::CreateNew("B", base_, base_, {}, {});
        const auto host = Open(base_);
        for (std::uint8_t storage = 1; storage <= 4; ++storage) {
            auto& writer = AddWriter(*host, storage);
            writer.header = "head-1";
            writer.banks = {"aaaa-1", "bbbb-1"};
            writer.WriteFile();
            writer.Attach(*host->session);
            writer.FlushAll();
            Put(*base_, BlockPath(storage), "block");
        }
        host->session->CreateCheckpoint("first", "");
        model_.SetCheckpoint(1, Snapshot(*host));
        model_.Check(base_, {1});
    }

    static std::string BlockPath(std::uint8_t storage) {
        return paths::GetBackupBlockPath("B", Guid(storage),
                                         paths::DigestToBlockName(digest::Md5(std::string("block"))));
    }

    static host_ptr Open(const CCloudBackup::client_ptr& client) {
        const auto host = std::make_shared<SHost>();
        host->backup = OpenBackup(client);
        host->session = CCloudBackupSession::StartSession(host->backup, host->backup->GetLastCheckpointId(), false);
        return host;
    }

    static StorageWriter& AddWriter(SHost& host, std::uint8_t storage) {
        const std::string path = host.folder / std::to_string(storage);
        return host.writers.insert_or_assign(storage, StorageWriter(Guid(storage), path)).first->second;
    }

    /// A host that has the first checkpoint's metadata locally, two storages of it changed.
    static host_ptr OpenChanged(const CCloudBackup::client_ptr& client) {
        const auto host = Open(client);
        for (std::uint8_t storage = 1; storage <= 4; ++storage) {
            auto& writer = AddWriter(*host, storage);
            writer.header = "head-1";
            writer.banks = {"aaaa-1", "bbbb-1"};
            writer.version = 1;
            writer.WriteFile();
            writer.Attach(*host->session);
        }
        ChangeAgain(*host);
        return host;
    }

    /// Storage 1 gets another bank, storage 2 another first one.
    static void ChangeAgain(SHost& host) {
        const std::string suffix = std::to_string(host.writers.at(1).version + 1);
        auto& first = host.writers.at(1);
        first.header = "head-" + suffix;
        first.banks.push_back("cccc-" + suffix);
        first.Flush({first.banks.size() - 1});
        auto& second = host.writers.at(2);
        second.header = "head-" + suffix;
        second.banks[0] = "aaaa-" + suffix;
        second.Flush({0});
    }

    static BackupModel::storages_t Snapshot(const SHost& host) {
        BackupModel::storages_t storages;
        for (const auto& [storage, writer] : host.writers) {
            storages[Guid(storage)] = {writer.GetBytes(), {}};
        }
        return storages;
    }

    /// As before the commit that failed, and ready for another one.
    static void ExpectUncommitted(SHost& host) {
        EXPECT_EQ(host.session->GetCheckpoint()->GetId(), 1U);
        EXPECT_EQ(host.backup->GetLastCheckpointId(), 1U);
        for (std::uint8_t storage = 1; storage <= 4; ++storage) {
            EXPECT_EQ(host.session->GetStorageDescriptor(Guid(storage)).GetMetaVersion(), 1U);
        }
        EXPECT_THAT(host.session->EnumChangedStorages(), testing::ElementsAre(Guid(1), Guid(2)));
        EXPECT_NO_THROW((void)host.session->EnumerateStorages()) << "the cache is resumed";
    }

    /// A host that starts from scratch can commit again, whatever the failed commit has left.
    void ExpectCommitFromScratch(const store_ptr& store) {
        const auto host = Open(store->Reopen());
        const unsigned long last = host->backup->GetLastCheckpointId();
        for (std::uint8_t storage = 1; storage <= 4; ++storage) {
            auto& writer = AddWriter(*host, storage);
            host->session->PrepareStorageForAccess(Guid(storage), writer.GetPath(), 0);
            const std::string bytes = ReadFile(writer.GetPath());
            writer.header = bytes.substr(0, 6);
            for (std::size_t offset = 6; offset < bytes.size(); offset += 6) {
                writer.banks.push_back(bytes.substr(offset, 6));
            }
            writer.version = host->session->GetStorageDescriptor(Guid(storage)).GetMetaVersion();
            writer.TakeSink(*host->session);
        }
        ChangeAgain(*host);
        EXPECT_EQ(host->session->CreateCheckpoint("from scratch", "kept")->GetId(), last + 1);
        model_.SetCheckpoint(last + 1, Snapshot(*host));
        model_.Check(store->Reopen(), {1, last + 1});
    }

    static auto CommitOf(const host_ptr& host) {
        return [host] { host->session->CreateCheckpoint("second", "kept for the long term"); };
    }

    const store_ptr base_ = std::make_shared<clients::CMemoryClient>();
    BackupModel model_;
};

}  // namespace test
