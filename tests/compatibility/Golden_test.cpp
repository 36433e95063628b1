#include "tests/compatibility/GoldenFixture.h"

#include "common/exc.h"

/// Repositories as they were written once, read whole by the library of today.
namespace test {
namespace {

using backup::CheckpointFilter;
using backup::CloudStorageBlockStoreSchema;
using checkpoint_ptr = backup::CCloudBackup::checkpoint_ptr;
using testing::ElementsAre;

std::string OwnerText(const checkpoint_ptr& checkpoint) {
    const auto owner = checkpoint->GetOwner();
    return exc::Format("%1 %2 %3", owner.GetId(), owner.GetType(), owner.GetDescription());
}

using GoldenSingleFile = GoldenTest;

TEST_F(GoldenSingleFile, EveryCheckpointIsRead) {
    Copy("single_file");
    const auto found = OpenBackup("documents");
    EXPECT_EQ(found->GetLastCheckpointId(), 2U);
    EXPECT_THAT(found->EnumCheckpointsImpl(CheckpointFilter::all), ElementsAre(1, 2));
    for (const unsigned long id : {1UL, 2UL}) {
        const auto checkpoint = found->LoadCheckpoint(id);
        EXPECT_EQ(checkpoint->GetFormatVersion(), 1);
        EXPECT_EQ(checkpoint->GetDxr().GetContent(), "content of " + std::to_string(id));
        EXPECT_TRUE(checkpoint->GetDxrLongTerm().IsEmpty());
        EXPECT_EQ(OwnerText(checkpoint), "c1000000-0000-4000-8000-00000000000a host Anna's machine");
        EXPECT_EQ(checkpoint->GetStorageById(firstId).GetMetaVersion(), id);
        EXPECT_EQ(checkpoint->GetStorageById(secondId).GetMetaVersion(), 1U);
    }
}

TEST_F(GoldenSingleFile, EveryMetadataIsRead) {
    Copy("single_file");
    const auto found = OpenBackup("documents");
    const std::string bank1 = Line("bank 1", "first", 1);
    EXPECT_EQ(Restore(found, 1, firstId), Line("header", "first", 1) + bank1 + Line("bank 2", "first", 1));
    EXPECT_EQ(Restore(found, 2, firstId),
              Line("header", "first", 2) + bank1 + Line("bank 2", "first", 2) + Line("bank 3", "first", 2));
    EXPECT_EQ(Restore(found, 1, secondId), Line("header", "second", 1));
    EXPECT_EQ(Restore(found, 2, secondId), Line("header", "second", 1));
}

using GoldenParts = GoldenTest;

TEST_F(GoldenParts, TheRepositoryIsRead) {
    Copy("parts");
    const auto repository = Open(std::nullopt);
    EXPECT_EQ(repository->GetId().ToAStr(), "4e000000-0000-4000-8000-000000000001");
    EXPECT_EQ(repository->LoadDescription().displayName, "golden");
    EXPECT_EQ(repository->GetOwner(),
              (backup::SCloudRepoIdentity{guid::guid_t::FromStr("0e000000-0000-4000-8000-000000000001"), "department",
                                          "Accounting & \"Co\""}));
    EXPECT_THAT(repository->EnumClients(), ElementsAre(backup::SCloudRepoIdentity{annaId, "host", "Anna's machine"}));
    EXPECT_EQ(
        backup::CCloudExternalRepository::Enumerate(std::make_shared<clients::CDirectoryClient>(folder_.GetPath()), {}),
        std::vector<std::string>{"golden"});
}

TEST_F(GoldenParts, EveryCheckpointIsRead) {
    Copy("parts");
    const auto found = OpenBackup("documents");
    EXPECT_THAT(found->EnumCheckpointsImpl(CheckpointFilter::all), ElementsAre(1, 2, 3, 4));
    for (const unsigned long id : {1UL, 2UL, 3UL, 4UL}) {
        const auto checkpoint = found->LoadCheckpoint(id);
        EXPECT_EQ(checkpoint->GetFormatVersion(), 2);
        EXPECT_EQ(checkpoint->GetId(), id);
        EXPECT_EQ(checkpoint->GetDxr().GetContent(), id == 4 ? "" : "content of " + std::to_string(id));
        EXPECT_EQ(OwnerText(checkpoint), "0e000000-0000-4000-8000-000000000001 department Accounting & \"Co\"");
        EXPECT_EQ(checkpoint->GetStorages().size(), 2U);
        EXPECT_EQ(checkpoint->GetStorageById(firstId).GetMetaVersion(), id);
        EXPECT_EQ(checkpoint->GetStorageById(firstId).GetBlockStoreSchema(), CloudStorageBlockStoreSchema::legacy);
    }
}

TEST_F(GoldenParts, EveryMetadataIsRead) {
    Copy("parts");
    const auto found = OpenBackup("documents");
    const auto header = [](unsigned long version) { return Line("header", "first", version); };
    const auto bank = [](int number, unsigned long version) {
        return Line("bank " + std::to_string(number), "first", version);
    };
    EXPECT_EQ(Restore(found, 1, firstId), header(1) + bank(1, 1) + bank(2, 1) + bank(3, 1));
    EXPECT_EQ(Restore(found, 2, firstId), header(2) + bank(1, 1) + bank(2, 2) + bank(3, 1));
    EXPECT_EQ(Restore(found, 3, firstId), header(3) + bank(1, 1) + bank(2, 2) + bank(3, 1) + bank(4, 3));
    EXPECT_EQ(Restore(found, 4, firstId), header(4) + bank(1, 4) + bank(2, 4));
    for (const unsigned long id : {1UL, 2UL, 3UL}) {
        EXPECT_EQ(Restore(found, id, secondId), Line("header", "second", 1));
    }
    EXPECT_EQ(Restore(found, 4, secondId), Line("header", "second", 2) + Line("bank 1", "second", 2));
}

TEST_F(GoldenParts, BlockStoresAreRead) {
    Copy("parts");
    const auto found = OpenBackup("documents");
    EXPECT_EQ(found->GetBlockStoreSize(firstId), 34U);
    EXPECT_EQ(found->GetBlockStoreSize(secondId), 18U);
    const std::string bytes = "block 1 of second\n";
    found->ClearReleasedBlocks(secondId, {digest::Md5(bytes)});
    EXPECT_EQ(found->GetBlockStoreSize(secondId), 0U) << "the block lies where its digest says";
}

TEST_F(GoldenParts, WhatOtherProgramsAddIsPassedOver) {
    Copy("parts", "additions");
    EXPECT_EQ(Open()->LoadDescription().displayName, "golden");
    const auto found = OpenBackup("documents");
    const auto checkpoint = found->LoadCheckpoint(3);
    EXPECT_EQ(checkpoint->GetStorages().size(), 2U);
    EXPECT_EQ(checkpoint->GetDxr().GetContent(), "content of 3");
    EXPECT_EQ(checkpoint->GetStorageById(secondId).GetBlockStoreSchema(), CloudStorageBlockStoreSchema::legacy);
    EXPECT_EQ(Restore(found, 3, firstId).size(), 200U);
}

using GoldenLongTerm = GoldenTest;

TEST_F(GoldenLongTerm, EveryCheckpointIsRead) {
    Copy("long_term");
    const auto found = OpenBackup("archive");
    EXPECT_EQ(found->GetLastCheckpointId(), 3U);
    EXPECT_THAT(found->EnumCheckpointsImpl(CheckpointFilter::regular), ElementsAre(2, 3));
    EXPECT_THAT(found->EnumCheckpointsImpl(CheckpointFilter::longTerm), ElementsAre(1, 3));
    EXPECT_EQ(found->LoadCheckpoint(1)->GetDxr().GetContent(), "content of 1") << "of the long-term copy";
    EXPECT_EQ(found->LoadCheckpoint(1)->GetDxrLongTerm().GetContent(), "long-term content of 1");
    EXPECT_EQ(found->LoadCheckpoint(2)->GetDxrLongTerm().GetContent(), "");
    EXPECT_EQ(found->LoadCheckpoint(3)->GetDxrLongTerm().GetContent(), "long-term content of 3");
}

TEST_F(GoldenLongTerm, BothCopiesSayTheSame) {
    Copy("long_term");
    const auto found = OpenBackup("archive");
    for (const auto feature :
         {backup::checkpoint::DxrContentFeature::compatible, backup::checkpoint::DxrContentFeature::longTerm}) {
        const auto checkpoint = found->LoadCheckpointImpl(3, feature);
        EXPECT_EQ(checkpoint->GetDxr().GetContent(), "content of 3");
        EXPECT_EQ(checkpoint->GetDxrLongTerm().GetContent(), "long-term content of 3");
        EXPECT_EQ(checkpoint->GetStorageById(firstId).GetBlockStoreSchema(), CloudStorageBlockStoreSchema::legacy);
        EXPECT_EQ(checkpoint->GetStorageById(secondId).GetBlockStoreSchema(), CloudStorageBlockStoreSchema::blobs);
        EXPECT_EQ(checkpoint->GetStorageById(secondId).GetCloudMetadataPartDescriptionsMap().size(), 2U);
    }
}

TEST_F(GoldenLongTerm, EveryMetadataIsRead) {
    Copy("long_term");
    const auto found = OpenBackup("archive");
    const std::string bank1 = Line("bank 1", "first", 1);
    EXPECT_EQ(Restore(found, 1, firstId), Line("header", "first", 1) + bank1);
    EXPECT_EQ(Restore(found, 2, firstId), Line("header", "first", 2) + bank1 + Line("bank 2", "first", 2));
    EXPECT_EQ(Restore(found, 3, firstId), Restore(found, 2, firstId));
    EXPECT_EQ(Restore(found, 2, secondId), Line("header", "second", 1) + Line("bank 1", "second", 1));
    EXPECT_EQ(Restore(found, 3, secondId),
              Line("header", "second", 2) + Line("bank 1", "second", 1) + Line("bank 2", "second", 2));
}

using GoldenTwoClients = GoldenTest;

TEST_F(GoldenTwoClients, EachHasItsOwn) {
    Copy("two_clients");
    const auto repository = Open();
    EXPECT_THAT(repository->EnumClients(),
                ElementsAre(backup::SCloudRepoIdentity{annaId, "host", "Anna's machine"},
                            backup::SCloudRepoIdentity{benId, "server", "Ben & sons <Übersee>"}));
    const auto contentOf = [&](const guid::guid_t& client, const std::string& name) {
        const auto found = repository->LoadBackup(client, name, true);
        return found->LoadCheckpoint(found->GetLastCheckpointId())->GetDxr().GetContent();
    };
    EXPECT_EQ(contentOf(annaId, "documents"), "Anna's documents");
    EXPECT_EQ(contentOf(annaId, "pictures"), "Anna's pictures");
    EXPECT_EQ(contentOf(benId, "documents"), "Ben's documents again");
    const std::string pictures = "first of Anna's pictures";
    EXPECT_EQ(Restore(OpenBackup("pictures"), 1, firstId), Line("header", pictures, 1) + Line("bank 1", pictures, 1));
    const std::string bens = "first of Ben's documents";
    EXPECT_EQ(Restore(repository->LoadBackup(benId, "documents", true), 2, firstId),
              Line("header", bens, 2) + Line("bank 1", bens, 1));
}

TEST_F(GoldenTwoClients, BackupsAreListed) {
    Copy("two_clients");
    std::vector<std::string> names;
    for (const auto& client : {annaId, benId}) {
        for (const auto& item : Open()->EnumBackups(client)) {
            names.push_back(client.ToAStr().substr(35) + " " + item.GetId() + (item.IsCorrupted() ? " corrupted" : ""));
        }
    }
    EXPECT_THAT(names, ElementsAre("a documents", "a pictures", "b documents"));
    EXPECT_EQ(Open()->GetBackupObjectCount(benId, "documents"), 5U);
}

}  // namespace
}  // namespace test
