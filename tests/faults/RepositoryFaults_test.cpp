// Repositories while the store fails: at every call, in every way.

#include "cloudclientlib/CloudExc.h"
#include "tests/faults/FaultSweep.h"
#include "tests/library/RepositoryFixture.h"

namespace {

using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

using repository_ptr = std::shared_ptr<CCloudExternalRepository>;
using operation_t = std::function<void(CCloudExternalRepository&)>;

const std::string configA = ClientFolder(clientAText) + "/Config";

repository_ptr OpenOn(const CCloudExternalRepository::client_ptr& client, const SCloudRepositoryInfo& info = InfoA()) {
    return std::dynamic_pointer_cast<CCloudExternalRepository>(CCloudExternalRepository::OpenExisting(client, info));
}

std::shared_ptr<crypto::sec_bytes_t> Salt(std::string_view bytes) {
    return std::make_shared<crypto::sec_bytes_t>(bytes.begin(), bytes.end());
}

std::shared_ptr<crypto::CKeySet> Key(std::uint8_t number) {
    crypto::SRawKeySetId raw;
    raw.bytes[15] = number;
    return std::make_shared<crypto::CKeySet>(crypto::CKeySetId(raw), L"hint", crypto::sec_bytes_t{'k', 'e', 'y'},
                                             std::vector<crypto::CRestoreKeyRepairRec>());
}

std::uint8_t NumberOf(const crypto::CKeySetId& id) { return id.GetRaw().bytes[15]; }

std::uint8_t CurrentKey(CCloudExternalRepository& repository) {
    return NumberOf(*repository.GetEncryptionKeyInfo({}).Get().keySetId);
}

std::vector<std::uint8_t> HistoricalKeys(CCloudExternalRepository& repository) {
    std::vector<std::uint8_t> numbers;
    for (const auto& key : repository.EnumHistoricalKeys({})) {
        numbers.push_back(NumberOf(key->GetId()));
    }
    return numbers;
}

std::vector<std::string> BackupsOf(CCloudExternalRepository& repository) {
    std::vector<std::string> ids;
    for (const auto& item : repository.EnumBackups({})) {
        ids.push_back(item.GetId());
    }
    return ids;
}

const SCloudRepoIdentity oldOwner{Guid(5), "team", "The team"};

/// Repository "Team" with an owner; its clients A and B have two and one backups and keys.
class RepositoryFaults : public testing::Test {
protected:
    void SetUp() override {
        (void)CCloudExternalRepository::CreateNew(base_, InfoA());
        for (const auto& info : {InfoA(), InfoB()}) {
            const auto repository = OpenOn(base_, info);
            repository->CreateBackup({}, "one")->SaveCheckpoint(Checkpoint(1));
            repository->SetEncryptionKey({}, Key(1), Salt("1"));
            repository->AddHistoricalKey({}, Key(1));
        }
        OpenOn(base_)->CreateBackup({}, "two")->SaveCheckpoint(Checkpoint(1));
        OpenOn(base_)->SetOwner(oldOwner);
        CheckClient(*OpenOn(base_, InfoB()));
    }

    /// All that a client has is there and readable.
    static void CheckClient(CCloudExternalRepository& repository) {
        EXPECT_EQ(repository.LoadBackup({}, "one", true)->LoadCheckpoint(1)->GetId(), 1U);
        EXPECT_EQ(repository.GetEncryptionKeyInfo({}).Get().salt->size(), 1U);
        EXPECT_THAT(HistoricalKeys(repository), testing::Contains(1));
        const SCloudRepoIdentity info = repository.LoadClientInfo(repository.GetEffectiveClientId({}));
        EXPECT_NE(info.type, "");
    }

    /// Sweeps an operation of client A's. Whatever fails, client B loses nothing, and doing it again from scratch ends
    /// it; `check` is what else must hold at any time.
    SSweepResult Sweep(const operation_t& operation, const operation_t& check, const operation_t& checkDone) {
        return RunSweep(base_, {.prepare = [operation](const faults_ptr& faults) -> std::function<void()> {
                                    const auto repository = OpenOn(faults);
                                    return [=] { operation(*repository); };
                                },
                                .check =
                                    [check](const store_ptr& store) {
                                        CheckClient(*OpenOn(store, InfoB()));
                                        check(*OpenOn(store));
                                    },
                                .retry = [operation](const store_ptr& store) { operation(*OpenOn(store)); },
                                .checkDone = [checkDone](const store_ptr& store) { checkDone(*OpenOn(store)); }});
    }

    /// Every fault is reported, and the operation makes so many calls.
    static void ExpectAllReported(const SSweepResult& result, std::uint64_t calls) {
        EXPECT_EQ(result.calls, calls);
        EXPECT_EQ(result.reported, 6 * calls);
    }

    const store_ptr base_ = std::make_shared<clients::CMemoryClient>();
};

/// Runs what opens or makes a repository; its failure bears the operation's message and the store's as its cause.
void ExpectWrapped(const std::string& message, const std::function<void()>& operation) {
    try {
        operation();
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_EQ(failure.GetMessage(), message);
        EXPECT_TRUE(exc::FindCause<cloudclientlib::CCloudExc>(failure).has_value()) << failure.what();
        throw;
    }
}

TEST_F(RepositoryFaults, CreateNew) {
    const SCloudRepositoryInfo info{"New", InfoA().client};
    const auto create = [info](const CCloudExternalRepository::client_ptr& client) {
        ExpectWrapped("Failed to create new external cloud repository '" + info.ToString() + "'",
                      [&] { (void)CCloudExternalRepository::CreateNew(client, info); });
    };
    const auto createOrOpen = [info, create](const store_ptr& store) {
        if (CCloudExternalRepository::HasValidDescription("/Draxo/Backup/New", store)) {
            (void)OpenOn(store, info);  // it was made, only the answer was lost
        } else {
            create(store);
        }
    };
    const auto whole = [](const store_ptr& store) { CheckClient(*OpenOn(store, InfoB())); };
    const auto usable = [info](const store_ptr& store) {
        const auto repository = OpenOn(store, info);
        EXPECT_FALSE(repository->GetId().IsEmpty());
        EXPECT_THAT(repository->EnumClients(), IsEmpty());
        EXPECT_EQ(repository->CreateBackup({}, "first")->GetLastCheckpointId(), 0U);
    };
    const auto result = RunSweep(base_, {.prepare = [create](const faults_ptr& faults) -> std::function<void()> {
                                             return [=] { create(faults); };
                                         },
                                         .check = whole,
                                         .retry = createOrOpen,
                                         .checkDone = usable});
    // Four folders looked for and three made, the description looked for and written, owner and description looked for
    // and the latter read.
    ExpectAllReported(result, 12);
}

TEST_F(RepositoryFaults, OpenExisting) {
    const auto open = [](const CCloudExternalRepository::client_ptr& client) {
        ExpectWrapped("Failed to open external cloud repository '" + infoAText + "'",
                      [&] { EXPECT_EQ(OpenOn(client)->GetOwner(), oldOwner); });
    };
    const auto result = RunSweep(
        base_, {.prepare = [open](const faults_ptr& faults) -> std::function<void()> { return [=] { open(faults); }; },
                .check = open,
                .retry = open,
                .checkDone = open});
    ExpectAllReported(result, 4);
}

TEST_F(RepositoryFaults, SetOwner) {
    for (const auto& owner : {SCloudRepoIdentity{Guid(6), "x", "y"}, SCloudRepoIdentity{}}) {
        const auto set = [owner](CCloudExternalRepository& repository) {
            const SCloudRepoIdentity before = repository.GetOwner();
            try {
                repository.SetOwner(owner);
            } catch (const std::exception&) {
                EXPECT_EQ(repository.GetOwner(), before);
                throw;
            }
            EXPECT_EQ(repository.GetOwner(), owner);
        };
        const auto oldOrNew = [owner](CCloudExternalRepository& repository) {
            EXPECT_TRUE(repository.GetOwner() == oldOwner || repository.GetOwner() == owner);
        };
        const auto isNew = [owner](CCloudExternalRepository& repository) { EXPECT_EQ(repository.GetOwner(), owner); };
        ExpectAllReported(Sweep(set, oldOrNew, isNew), 1);
    }
}

TEST_F(RepositoryFaults, UpdateClientInfo) {
    base_->DeleteFolderAsync(configA, nullptr)->Wait();
    const auto update = [](CCloudExternalRepository& repository) { repository.UpdateClientInfo(); };
    const auto noneOrAll = [](CCloudExternalRepository& repository) {
        const auto info = repository.LoadClientInfo(Guid(10));
        EXPECT_TRUE(info == (SCloudRepoIdentity{Guid(10), "", ""}) ||
                    info == (SCloudRepoIdentity{Guid(10), "host", "Anna"}));
    };
    const auto all = [](CCloudExternalRepository& repository) {
        EXPECT_EQ(repository.LoadClientInfo(Guid(10)), (SCloudRepoIdentity{Guid(10), "host", "Anna"}));
    };
    ExpectAllReported(Sweep(update, noneOrAll, all), 3);
    const auto ensure = [](CCloudExternalRepository& repository) { repository.EnsureClientInfo(Guid(10)); };
    ExpectAllReported(Sweep(ensure, noneOrAll, all), 4);
}

TEST_F(RepositoryFaults, SetEncryptionKey) {
    const auto set = [](CCloudExternalRepository& repository) { repository.SetEncryptionKey({}, Key(2), Salt("22")); };
    // The key and its salt are from one time.
    const auto oldOrNew = [](CCloudExternalRepository& repository) {
        const auto key = repository.GetEncryptionKeyInfo({}).Get();
        EXPECT_EQ(key.salt->size(), NumberOf(*key.keySetId));
        EXPECT_THAT(HistoricalKeys(repository), ElementsAre(1));
    };
    const auto isNew = [](CCloudExternalRepository& repository) { EXPECT_EQ(CurrentKey(repository), 2); };
    ExpectAllReported(Sweep(set, oldOrNew, isNew), 3);
    // A client that has nothing yet: its information and the folder are made first.
    base_->DeleteFolderAsync(configA, nullptr)->Wait();
    const auto noneOrNew = [](CCloudExternalRepository& repository) {
        const auto key = repository.GetEncryptionKeyInfo({});
        EXPECT_TRUE(!key.IsSet() || NumberOf(*key.Get().keySetId) == 2);
    };
    ExpectAllReported(Sweep(set, noneOrNew, isNew), 6);
}

TEST_F(RepositoryFaults, AddHistoricalKey) {
    const auto add = [](CCloudExternalRepository& repository) {
        if (HistoricalKeys(repository).size() == 1) {  // else it was added, only the answer was lost
            repository.AddHistoricalKey({}, Key(2));
        }
    };
    const auto oldOrNew = [](CCloudExternalRepository& repository) {
        const auto keys = HistoricalKeys(repository);
        EXPECT_EQ(keys.back(), 1);
        EXPECT_TRUE(keys.size() == 1 || (keys.size() == 2 && keys.front() == 2));
        EXPECT_EQ(CurrentKey(repository), 1);
    };
    const auto isNew = [](CCloudExternalRepository& repository) {
        EXPECT_THAT(HistoricalKeys(repository), ElementsAre(2, 1));
    };
    // The listing before it looks for the document and reads it; so does the operation, which then looks for the folder
    // and writes.
    ExpectAllReported(Sweep(add, oldOrNew, isNew), 6);
}

TEST_F(RepositoryFaults, WhatReadsReportsEveryFaultAndChangesNothing) {
    const auto unchanged = [](CCloudExternalRepository& repository) {
        CheckClient(repository);
        EXPECT_EQ(repository.GetOwner(), oldOwner);
        EXPECT_THAT(BackupsOf(repository), ElementsAre("one", "two"));
    };
    const auto expectCalls = [&](std::uint64_t calls, const operation_t& operation) {
        ExpectAllReported(Sweep(operation, unchanged, unchanged), calls);
    };
    using repository_t = CCloudExternalRepository;
    expectCalls(2, [](repository_t& repository) { (void)repository.GetEncryptionKeyInfo({}); });
    expectCalls(2, [](repository_t& repository) { (void)repository.EnumHistoricalKeys({}); });
    expectCalls(2, [](repository_t& repository) { (void)repository.LoadClientInfo(Guid(10)); });
    expectCalls(2, [](repository_t& repository) { (void)repository.LoadDescription(); });
    expectCalls(2, [](repository_t& repository) { (void)repository.LoadBackup({}, "one", true); });
    expectCalls(1, [](repository_t& repository) { (void)repository.GetBackupObjectCount({}, "one"); });
    expectCalls(1, [](repository_t& repository) { (void)repository.GetStorageQuota(); });
}

// What cannot be read is left out or told to be corrupted; only the listing itself ends the call.
TEST_F(RepositoryFaults, ListingsGoOnBehindWhatCannotBeRead) {
    const auto unchanged = [](CCloudExternalRepository& repository) { CheckClient(repository); };
    const auto clients =
        Sweep([](CCloudExternalRepository& repository) { (void)repository.EnumClients(); }, unchanged,
              [](CCloudExternalRepository& repository) { EXPECT_EQ(repository.EnumClients().size(), 2U); });
    EXPECT_EQ(clients.calls, 5U);
    EXPECT_EQ(clients.reported, 6U) << "of the one listing, in each way";
    const auto backups =
        Sweep([](CCloudExternalRepository& repository) { EXPECT_EQ(repository.EnumBackups({}).size(), 2U); }, unchanged,
              [](CCloudExternalRepository& repository) {
                  for (const auto& item : repository.EnumBackups({})) {
                      EXPECT_FALSE(item.IsCorrupted());
                  }
              });
    EXPECT_EQ(backups.calls, 6U);
    EXPECT_EQ(backups.reported, 12U) << "of the look for the folder and of its listing";
}

TEST_F(RepositoryFaults, CreateBackup) {
    const auto create = [](CCloudExternalRepository& repository) { (void)repository.CreateBackup({}, "new"); };
    const auto othersWhole = [](CCloudExternalRepository& repository) { CheckClient(repository); };
    const auto usable = [](CCloudExternalRepository& repository) {
        const auto backup = repository.LoadBackup({}, "new", false);
        EXPECT_EQ(backup->GetLastCheckpointId(), 0U);
        backup->SaveCheckpoint(Checkpoint(1));
        EXPECT_EQ(backup->LoadCheckpoint(1)->GetId(), 1U);
    };
    const auto result = Sweep(create, othersWhole, usable);
    // The client's information, two looks for the backup, and its folders: five looked for, four made.
    ExpectAllReported(result, 2 + 2 + 9);
}

TEST_F(RepositoryFaults, LoadBackupForWriting) {
    const auto load = [](CCloudExternalRepository& repository) {
        EXPECT_EQ(repository.LoadBackup({}, "one", false)->GetLastCheckpointId(), 1U);
    };
    const auto whole = [](CCloudExternalRepository& repository) { CheckClient(repository); };
    ExpectAllReported(Sweep(load, whole, whole), 4);
}

TEST_F(RepositoryFaults, DeleteBackup) {
    const auto remove = [](CCloudExternalRepository& repository) { repository.DeleteBackup({}, "two", nullptr); };
    const auto otherWhole = [](CCloudExternalRepository& repository) { CheckClient(repository); };
    const auto gone = [](CCloudExternalRepository& repository) {
        EXPECT_THAT(BackupsOf(repository), ElementsAre("one"));
    };
    ExpectAllReported(Sweep(remove, otherWhole, gone), 1);
}

TEST_F(RepositoryFaults, DeleteBackups) {
    const auto remove = [](CCloudExternalRepository& repository) {
        repository.DeleteBackups(Guid(10), repository.GetBackupClient(Guid(10)));
    };
    const auto keysWhole = [](CCloudExternalRepository& repository) {
        EXPECT_EQ(CurrentKey(repository), 1);
        EXPECT_THAT(HistoricalKeys(repository), ElementsAre(1));
    };
    const auto gone = [](CCloudExternalRepository& repository) { EXPECT_THAT(BackupsOf(repository), IsEmpty()); };
    ExpectAllReported(Sweep(remove, keysWhole, gone), 4);
}

TEST_F(RepositoryFaults, DeleteOfOneOfTwoClients) {
    const auto remove = [](CCloudExternalRepository& repository) { repository.Delete(); };
    const auto opens = [](CCloudExternalRepository& repository) { EXPECT_EQ(repository.GetOwner(), oldOwner); };
    const auto gone = [](CCloudExternalRepository& repository) {
        EXPECT_THAT(repository.EnumClients(), ElementsAre(SCloudRepoIdentity{Guid(11), "server", "Ben"}));
    };
    const auto result = Sweep(remove, opens, gone);
    // Four for the backups, the folder looked for and deleted, the clients listed, and B's information looked for and
    // read: what of that fails counts as a client.
    EXPECT_EQ(result.calls, 9U);
    EXPECT_EQ(result.reported, 6U * 7U);
}

TEST_F(RepositoryFaults, DeleteOfTheLastClient) {
    OpenOn(base_, InfoB())->Delete();
    const auto removeWhatIsThere = [](const store_ptr& store) {
        if (CCloudExternalRepository::HasValidDescription(repositoryRoot, store)) {
            OpenOn(store)->Delete();
        }
    };
    const auto gone = [](const store_ptr& store) {
        EXPECT_FALSE(store->IsFolderExist(ClientFolder(clientAText)));
        EXPECT_FALSE(CCloudExternalRepository::HasValidDescription(repositoryRoot, store));
        EXPECT_EQ(store->GetObjectCount(repositoryRoot), 0U);
    };
    // While the client has anything, the repository opens.
    const auto openable = [](const store_ptr& store) {
        if (store->IsFolderExist(ClientFolder(clientAText))) {
            EXPECT_NO_THROW((void)OpenOn(store));
        }
    };
    const auto result = RunSweep(base_, {.prepare = [](const faults_ptr& faults) -> std::function<void()> {
                                             const auto repository = OpenOn(faults);
                                             return [=] { repository->Delete(); };
                                         },
                                         .check = openable,
                                         .retry = removeWhatIsThere,
                                         .checkDone = gone});
    ExpectAllReported(result, 8);
}

TEST_F(RepositoryFaults, Enumerate) {
    const auto list = [](const CCloudExternalRepository::client_ptr& client) {
        ExpectWrapped("Failed to enumerate external cloud repositories '" + infoAText + "'",
                      [&] { EXPECT_THAT(CCloudExternalRepository::Enumerate(client, InfoA()), ElementsAre("Team")); });
    };
    const auto result = RunSweep(
        base_, {.prepare = [list](const faults_ptr& faults) -> std::function<void()> { return [=] { list(faults); }; },
                .check = list,
                .retry = list,
                .checkDone = list});
    ExpectAllReported(result, 2);
}

}  // namespace
