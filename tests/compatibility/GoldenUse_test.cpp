#include <sstream>
#include <vector>

#include "common/exc.h"
#include "tests/compatibility/GoldenFixture.h"
#include "tests/library/StorageWriter.h"
#include "tests/support/SingleFileOption.h"

/// Repositories that were written once are gone on with: a next checkpoint, the oldest deleted, whatever else changes.
namespace test {
namespace {

using backup::CheckpointFilter;
using testing::ElementsAre;

std::vector<std::string> LinesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line + "\n");
    }
    return lines;
}

class GoldenUse : public GoldenTest {
protected:
    using contents_t = std::map<std::string, std::string>;
    enum class EReport { changedBanks, allBanks };

    /// The metadata of every storage of these checkpoints.
    contents_t Contents(const backup_ptr& found, const std::set<unsigned long>& ids) {
        contents_t contents;
        for (const unsigned long id : ids) {
            const auto checkpoint = found->LoadCheckpoint(id);
            for (const auto& storage : checkpoint->GetStorages()) {
                contents[exc::Format("%1 %2", id, storage.GetStorageId())] = Restore(found, id, storage.GetStorageId());
            }
        }
        return contents;
    }

    /// Commits the next checkpoint: the first storage's last bank is written anew, and one more. The metadata it then
    /// has.
    std::string CommitNext(const backup_ptr& found, EReport report = EReport::changedBanks) {
        const auto session = backup::CCloudBackupSession::StartSession(found, found->GetLastCheckpointId(), false);
        StorageWriter writer(firstId, local_ / "next");
        writer.Attach(*session);
        const auto lines = LinesOf(ReadBytes(writer.GetPath()));
        writer.version = session->GetStorageDescriptor(firstId).GetMetaVersion();
        writer.header = lines.at(0);
        writer.banks.assign(lines.begin() + 1, lines.end());
        writer.banks.back().replace(0, 4, "BANK");
        writer.banks.push_back("one more\n");
        if (report == EReport::allBanks) {
            writer.FlushAll();
        } else {
            writer.Flush({writer.banks.size() - 2, writer.banks.size() - 1});
        }
        session->CreateCheckpoint("gone on", "long-term, too");
        return writer.GetBytes();
    }

    /// A day with the backup: the next checkpoint, then the oldest one deleted; the others stay as they were.
    void GoOn(const std::string& name) {
        auto found = OpenBackup(name, false);
        auto ids = found->EnumCheckpointsImpl(CheckpointFilter::all);
        const auto before = Contents(found, ids);
        const std::string written = CommitNext(found);

        found = OpenBackup(name, false);
        const unsigned long next = found->GetLastCheckpointId();
        EXPECT_EQ(next, *ids.rbegin() + 1);
        EXPECT_EQ(Contents(found, ids), before);
        EXPECT_EQ(Restore(found, next, firstId), written);
        EXPECT_EQ(found->LoadCheckpoint(next)->GetDxr().GetContent(), "gone on");

        found->DeleteCheckpoints({*ids.begin()});
        ids.erase(ids.begin());
        EXPECT_EQ(FailureOf([&] { EXPECT_EQ(Contents(found, ids), Without(before, ids)); }), "no failure");
        EXPECT_EQ(Restore(found, next, firstId), written);
    }

    static contents_t Without(contents_t contents, const std::set<unsigned long>& kept) {
        std::erase_if(contents, [&](const auto& entry) { return !kept.contains(std::stoul(entry.first)); });
        return contents;
    }
};

TEST_F(GoldenUse, WholeMetadataFilesGoOn) {
    Copy("single_file");
    const SingleFileOption option(true);
    GoOn("documents");
    EXPECT_EQ(OpenBackup("documents")->LoadCheckpoint(3)->GetFormatVersion(), 1);
}

TEST_F(GoldenUse, WholeMetadataFilesGoOnInParts) {
    Copy("single_file");
    auto found = OpenBackup("documents", false);
    const auto before = Contents(found, {1, 2});
    // No checkpoint has parts to build on yet, so the writer reports all of its banks.
    const std::string written = CommitNext(found, EReport::allBanks);
    found = OpenBackup("documents");
    EXPECT_EQ(found->LoadCheckpoint(3)->GetFormatVersion(), 2);
    EXPECT_EQ(Restore(found, 3, firstId), written);
    EXPECT_EQ(Restore(found, 3, secondId), Line("header", "second", 1));
    EXPECT_EQ(Contents(found, {1, 2}), before);
    found->DeleteCheckpoints({1, 2});
    EXPECT_EQ(Restore(found, 3, firstId), written);
}

TEST_F(GoldenUse, PartsDoNotGoOnAsWholeFiles) {
    Copy("parts");
    const SingleFileOption option(true);
    EXPECT_EQ(FailureOf([&] { CommitNext(OpenBackup("documents", false)); }),
              "Can't create backup session: chekpoint version in storage: '2'. Checkpoints versions greater than '1' "
              "are not supported in current mode");
}

TEST_F(GoldenUse, PartsGoOn) {
    Copy("parts");
    GoOn("documents");
}

TEST_F(GoldenUse, PartsAreDeletedOneByOneDownToTheLast) {
    Copy("parts");
    const auto found = OpenBackup("documents", false);
    for (const unsigned long id : {1UL, 2UL, 3UL}) {
        const auto before = Contents(found, {id + 1});
        found->DeleteCheckpoints({id});
        EXPECT_EQ(Contents(found, {id + 1}), before);
    }
    EXPECT_EQ(
        FailureOf([&] { found->DeleteCheckpoints({4}); }),
        "Failed to delete checkpoints for cloud backup 'documents': Cannot delete last checkpoint in cloud backup "
        "'documents'");
    const std::string metadata = folder_ / ("Draxo/Backup/golden/Clients/" + annaId.ToAStr() + "/documents/Metadata");
    std::vector<std::string> left;
    for (const auto& [path, bytes] : FilesUnder(metadata)) {
        left.push_back(path);
    }
    const std::string first = firstId.ToAStr();
    const std::string second = secondId.ToAStr();
    EXPECT_THAT(left, ElementsAre(first + ".4", first + ".4_metaparts/40", first + ".4_metaparts/80", second + ".2",
                                  second + ".2_metaparts/41", "Checkpoint/4"));
    EXPECT_EQ(found->GetBlockStoreSize(firstId), 34U) << "a block store that is in use stays";
}

TEST_F(GoldenUse, LongTermCopiesGoOn) {
    Copy("long_term");
    GoOn("archive");
    EXPECT_THAT(OpenBackup("archive")->EnumCheckpointsImpl(CheckpointFilter::longTerm), ElementsAre(3, 4));
}

TEST_F(GoldenUse, ALongTermCopyAloneIsClearedByALook) {
    Copy("long_term");
    const auto found = OpenBackup("archive");
    EXPECT_THAT(found->EnumCheckpoints(), ElementsAre(2, 3));
    EXPECT_THAT(found->EnumCheckpointsImpl(CheckpointFilter::all), ElementsAre(2, 3));
    EXPECT_EQ(Restore(found, 3, firstId).size(), 120U);
    EXPECT_EQ(Restore(found, 2, secondId).size(), 82U);
}

TEST_F(GoldenUse, AStorageKeepsItsSchema) {
    Copy("long_term");
    CommitNext(OpenBackup("archive", false));
    EXPECT_EQ(OpenBackup("archive")->LoadCheckpoint(4)->GetStorageById(secondId).GetBlockStoreSchema(),
              backup::CloudStorageBlockStoreSchema::blobs);
}

TEST_F(GoldenUse, ClientsComeAndGo) {
    Copy("two_clients");
    GoOn("documents");
    Open()->DeleteBackup({}, "pictures", nullptr);
    EXPECT_EQ(Open()->EnumBackups({}).size(), 1U);
    const auto carla = guid::guid_t::FromStr("c1000000-0000-4000-8000-00000000000c");
    const auto repository = Open(backup::SCloudRepositoryClientInfo{carla, "host", "Carla"});
    (void)repository->CreateBackup({}, "new");
    EXPECT_EQ(Open()->EnumClients().size(), 3U);
    Open()->Delete();
    EXPECT_EQ(Open(ben)->EnumClients().size(), 2U) << "a repository stays while others are in it";
    EXPECT_EQ(Open(ben)->LoadBackup({}, "documents", false)->GetLastCheckpointId(), 2U);
}

TEST_F(GoldenUse, AnOwnerIsReplacedAndRemoved) {
    Copy("parts");
    Open()->SetOwner({benId, "person", "Ben"});
    EXPECT_EQ(Open()->GetOwner(), (backup::SCloudRepoIdentity{benId, "person", "Ben"}));
    CommitNext(OpenBackup("documents", false));
    EXPECT_EQ(OpenBackup("documents")->LoadCheckpoint(5)->GetOwner().GetDescription(), "Ben");
    Open()->SetOwner({});
    EXPECT_TRUE(Open()->GetOwner().id.IsEmpty());
}

}  // namespace
}  // namespace test
