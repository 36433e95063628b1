#include "tests/compatibility/GoldenFixture.h"

/// Damaged repositories: what is said of each damage, cause by cause, and that what is whole is read all the same.
namespace test {
namespace {

using testing::ElementsAre;

/// One damage of a repository, and what the operation then fails with.
struct SDamage {
    std::string name;
    std::string failure;

    friend std::ostream& operator<<(std::ostream& out, const SDamage& damage) { return out << damage.name; }
};

class DamagedCheckpoint : public GoldenTest, public testing::WithParamInterface<SDamage> {};

TEST_P(DamagedCheckpoint, IsRefused) {
    Copy("parts", GetParam().name);
    const auto found = OpenBackup("documents");
    EXPECT_EQ(FailureOf([&] { (void)found->LoadCheckpoint(4); }),
              "Failed to load checkpoint '4' for cloud backup 'documents': " + GetParam().failure);
    EXPECT_EQ(found->LoadCheckpoint(3)->GetDxr().GetContent(), "content of 3") << "the others are read";
    EXPECT_EQ(Restore(found, 3, firstId).size(), 200U);
}

TEST_P(DamagedCheckpoint, IsSkippedByAListingWhereTheRepositoryHasAnOwner) {
    Copy("parts", GetParam().name);
    const auto session = backup::CCloudBackupSession::StartSession(OpenBackup("documents"), 3, true);
    std::vector<unsigned long> ids;
    for (const auto& checkpoint : session->EnumCheckpoints()) {
        ids.push_back(checkpoint->GetId());
    }
    EXPECT_THAT(ids, ElementsAre(1, 2, 3));
}

TEST_P(DamagedCheckpoint, KeepsOthersFromBeingDeleted) {
    Copy("parts", GetParam().name);
    const auto before = FilesUnder(folder_.GetPath());
    EXPECT_EQ(
        FailureOf([&] { OpenBackup("documents")->DeleteCheckpoints({1}); }),
        "Failed to delete checkpoints for cloud backup 'documents': Failed to load information about remaining "
        "checkpoint '4' for cloud backup 'documents': Failed to load checkpoint '4' for cloud backup 'documents': " +
            GetParam().failure);
    EXPECT_EQ(FilesUnder(folder_.GetPath()), before) << "what the damaged one uses is not known";
}

INSTANTIATE_TEST_SUITE_P(
    All, DamagedCheckpoint,
    testing::Values(SDamage{"truncated_checkpoint",
                            "Invalid XML document: cut off at byte 300, in attribute 'StorageId' of node 'Stg'"},
                    SDamage{"empty_checkpoint", "Invalid XML document: no root element at byte 0"},
                    SDamage{"other_checkpoint", "Invalid checkpoint id: '3', expected: '4'"},
                    SDamage{"newer_format", "Unsupported cloud backup version: [3]"},
                    SDamage{"no_format_version", "Unsupported cloud backup version: [0]"},
                    SDamage{"no_meta_version", "Cannot find required attribute 'MetaVersion' of node 'Stg'"},
                    SDamage{"no_content_element", "Cannot find required node: Dxr"}),
    [](const auto& param) { return param.param.name; });

/// The path as the bucket's client has it; the library's own paths begin in the client's folder.
std::string InBucket(const std::string& path) { return "/Draxo/Backup/golden/Clients/" + annaId.ToAStr() + path; }

using DamagedMetadata = GoldenTest;

/// What every failed download of a storage's metadata begins with.
std::string DownloadFailure(const guid::guid_t& storageId, unsigned long version, const std::string& failure) {
    return "Cannot prepare local storage metadata for write. Storage id: " + storageId.ToAStr() +
           ", local path: LOCAL, local version: 0: Failed to download storage metadata '" + storageId.ToAStr() + "." +
           std::to_string(version) + "' from cloud. Local path: 'LOCAL': " + failure;
}

TEST_F(DamagedMetadata, AMissingPartIsNamed) {
    Copy("parts", "missing_part");
    const auto found = OpenBackup("documents");
    const std::string part = "/documents/Metadata/" + firstId.ToAStr() + ".1_metaparts/40";
    for (const unsigned long id : {1UL, 2UL, 3UL}) {
        const std::string storage = firstId.ToAStr() + "." + std::to_string(id);
        EXPECT_EQ(RestoreFailure(found, id, firstId),
                  DownloadFailure(firstId, id,
                                  "Cannot download bank blob [" + part + "] for storage [" + storage +
                                      "]: DownloadFile '" + InBucket(part) + "': object not found"));
    }
    EXPECT_EQ(Restore(found, 4, firstId).size(), 120U) << "a checkpoint that does not use it is whole";
    EXPECT_EQ(Restore(found, 1, secondId).size(), 41U);
}

TEST_F(DamagedMetadata, AMissingHeaderIsNamed) {
    Copy("parts", "missing_header");
    const auto found = OpenBackup("documents");
    EXPECT_EQ(RestoreFailure(found, 4, secondId),
              DownloadFailure(secondId, 2,
                              "DownloadFile '" + InBucket("/documents/Metadata/" + secondId.ToAStr() + ".2") +
                                  "': object not found"));
    EXPECT_EQ(Restore(found, 3, secondId).size(), 41U);
}

TEST_F(DamagedMetadata, AShortPartIsSeen) {
    Copy("parts", "short_part");
    EXPECT_EQ(RestoreFailure(OpenBackup("documents"), 4, firstId),
              DownloadFailure(firstId, 4,
                              "Downloaded storage size differs from declared. StorageId: [" + firstId.ToAStr() +
                                  "], downloaded: [100], declared: [120]"));
}

TEST_F(DamagedMetadata, AWrongSizeIsSeen) {
    Copy("parts", "wrong_size");
    EXPECT_EQ(RestoreFailure(OpenBackup("documents"), 4, firstId),
              DownloadFailure(firstId, 4,
                              "Downloaded storage size differs from declared. StorageId: [" + firstId.ToAStr() +
                                  "], downloaded: [120], declared: [121]"));
}

TEST_F(DamagedMetadata, AShortHeaderIsSeen) {
    Copy("parts", "short_header");
    EXPECT_EQ(RestoreFailure(OpenBackup("documents"), 4, firstId),
              DownloadFailure(firstId, 4, "Mismatch between file position [39] and next bank offset [40]"));
}

TEST_F(DamagedMetadata, AGapIsSeen) {
    Copy("parts", "wrong_offset");
    EXPECT_EQ(RestoreFailure(OpenBackup("documents"), 4, firstId),
              DownloadFailure(firstId, 4, "Mismatch between file position [40] and next bank offset [41]"));
}

using DamagedContent = GoldenTest;

TEST_F(DamagedContent, WhatIsNoBase64IsQuoted) {
    Copy("parts", "wrong_base64");
    const auto checkpoint = OpenBackup("documents")->LoadCheckpoint(1);
    EXPECT_EQ(FailureOf([&] { (void)checkpoint->GetDxr().GetContent(); }), "Invalid DXR content: 'not base64'");
    EXPECT_EQ(checkpoint->GetStorages().size(), 2U) << "the rest is there";
}

TEST_F(DamagedContent, WhatIsNoZlibIsRefused) {
    Copy("parts", "damaged_content");
    const auto checkpoint = OpenBackup("documents")->LoadCheckpoint(1);
    EXPECT_EQ(FailureOf([&] { (void)checkpoint->GetDxr().GetContent(); }), "Damaged zlib data: incorrect data check");
}

using DamagedBackup = GoldenTest;

TEST_F(DamagedBackup, AMissingCheckpointIsNamed) {
    Copy("parts", "missing_checkpoint");
    const auto found = OpenBackup("documents");
    EXPECT_THAT(found->EnumCheckpointsImpl(backup::CheckpointFilter::all), ElementsAre(1, 3, 4));
    EXPECT_EQ(FailureOf([&] { (void)found->LoadCheckpoint(2); }),
              "DownloadFile '" + InBucket("/documents/Metadata/CheckpointLongTerm/2") + "': object not found");
    found->DeleteCheckpoints({1});
    EXPECT_EQ(Restore(found, 3, firstId).size(), 200U);
}

TEST_F(DamagedBackup, MissingBothCopiesIsNamedAsTheLongTermOne) {
    Copy("long_term", "missing_both_copies");
    const auto found = OpenBackup("archive");
    EXPECT_EQ(found->GetLastCheckpointId(), 2U);
    EXPECT_EQ(FailureOf([&] { (void)found->LoadCheckpoint(3); }),
              "DownloadFile '" + InBucket("/archive/Metadata/CheckpointLongTerm/3") + "': object not found");
}

TEST_F(DamagedBackup, ALongTermCopyWithoutItsContentIsRefused) {
    Copy("long_term", "no_long_term_content");
    EXPECT_EQ(FailureOf([&] { (void)OpenBackup("archive")->LoadCheckpoint(1); }),
              "Failed to load checkpoint '1' for cloud backup 'archive': Cannot find required node: DxrLongTerm");
}

TEST_F(DamagedBackup, AStrangerAmongTheCheckpointsIsNamed) {
    Copy("parts", "stranger_among_checkpoints");
    EXPECT_EQ(FailureOf([&] { (void)OpenBackup("documents"); }),
              "Failed to enumerate checkpoints for cloud backup 'documents': Not an unsigned number: 'notes.txt'");
    const auto items = Open()->EnumBackups({});
    ASSERT_EQ(items.size(), 1U);
    EXPECT_TRUE(items[0].IsCorrupted());
}

using DamagedRepository = GoldenTest;

const std::string openFailure = "Failed to open external cloud repository 'Name: golden, Cliend id: '" +
                                annaId.ToAStr() + "', Client type: 'host', Client description: 'Anna's machine'': ";

TEST_F(DamagedRepository, WithoutADescriptionItIsNotOpened) {
    Copy("parts", "no_description");
    EXPECT_EQ(FailureOf([&] { (void)Open(); }), openFailure + "Repository description not found");
}

TEST_F(DamagedRepository, ADamagedDescriptionIsQuoted) {
    Copy("parts", "damaged_description");
    EXPECT_EQ(FailureOf([&] { (void)Open(); }),
              openFailure + "Attribute 'Id' of node 'Repository' is not a GUID: '4e00000-0000-4000-8000-000000000001'");
}

TEST_F(DamagedRepository, ADamagedOwnerIsNamed) {
    Copy("parts", "damaged_owner");
    EXPECT_EQ(FailureOf([&] { (void)Open(); }), openFailure + "Cannot find required attribute 'Type' of node 'Owner'");
}

TEST_F(DamagedRepository, AnotherClientsInformationIsNamed) {
    Copy("two_clients", "foreign_client_info");
    const auto repository = Open();
    EXPECT_EQ(FailureOf([&] { (void)repository->LoadClientInfo(annaId); }),
              "Client information has invalid client id: '" + benId.ToAStr() + "'");
    EXPECT_THAT(repository->EnumClients(),
                ElementsAre(backup::SCloudRepoIdentity{benId, "server", "Ben & sons <Übersee>"}));
    (void)OpenBackup("documents", false);
    EXPECT_EQ(Open()->EnumClients().size(), 2U) << "who writes puts it right";
}

using DamagedKeys = GoldenTest;

TEST_F(DamagedKeys, ASaltThatIsNoBase64IsNotQuoted) {
    Copy("keys", "damaged_salt");
    EXPECT_EQ(FailureOf([&] { (void)Open()->GetEncryptionKeyInfo({}); }),
              "Attribute 'Salt' of node 'EncryptionKey' is not base64");
    EXPECT_EQ(Open()->EnumHistoricalKeys({}).size(), 3U);
}

TEST_F(DamagedKeys, ATruncatedKeyIsRefused) {
    Copy("keys", "truncated_key");
    EXPECT_EQ(FailureOf([&] { (void)Open()->EnumHistoricalKeys({}); }),
              "Attribute 'Value' of node 'HistoricalKey' is not a key set: Failed to retrieve value from the binary "
              "stream: received less bytes (7) than expected (15).");
}

TEST_F(DamagedKeys, ANewerKeyIsRefusedAndKept) {
    Copy("keys", "newer_key");
    const auto before = FilesUnder(folder_.GetPath());
    const std::string failure =
        "Attribute 'Value' of node 'HistoricalKey' is not a key set: Unsupported key set version: 2";
    EXPECT_EQ(FailureOf([&] { (void)Open()->EnumHistoricalKeys({}); }), failure);
    const auto key = std::make_shared<crypto::CKeySet>(crypto::CKeySetId::CreateNew(), L"", crypto::sec_bytes_t(),
                                                       std::vector<crypto::CRestoreKeyRepairRec>());
    EXPECT_EQ(FailureOf([&] { Open()->AddHistoricalKey({}, key); }), failure);
    EXPECT_EQ(FilesUnder(folder_.GetPath()), before) << "a history that cannot be read is not overwritten";
}

}  // namespace
}  // namespace test
