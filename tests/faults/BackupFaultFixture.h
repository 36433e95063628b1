#pragma once

#include "tests/faults/BackupModel.h"
#include "tests/faults/FaultSweep.h"

/// What the sweeps over a backup's operations share.
namespace test {

using ids_t = std::set<unsigned long>;

inline constexpr const char* longTermContent = "keep";

inline std::shared_ptr<CCloudBackup> Open(const CCloudBackup::client_ptr& client, const std::string& id = "B") {
    return CCloudBackup::LoadExisting(id, client, client, {}, {}, ErrorHandling::fail);
}

inline digest::md5_digest_t Block(std::uint8_t number) {
    return digest::Md5(std::string(1, static_cast<char>(number)));
}

inline std::string BlockPath(std::uint8_t storage, std::uint8_t number) {
    return paths::GetBackupBlockPath("B", Guid(storage), paths::DigestToBlockName(Block(number)));
}

inline void PutBlock(const store_ptr& store, std::uint8_t storage, std::uint8_t number) {
    Put(*store, BlockPath(storage, number), std::string(1, static_cast<char>(number)));
}

/// Everything in the store.
inline std::vector<std::string> AllObjects(cloudclientlib::ICloudClient& client, const std::string& folder) {
    std::vector<std::string> objects;
    for (const auto& entry : client.QueryFolder(folder)) {
        const std::string path = folder + "/" + entry.name;
        const auto found = entry.isFolder ? AllObjects(client, path) : std::vector<std::string>{path};
        objects.insert(objects.end(), found.begin(), found.end());
    }
    return objects;
}

inline std::string Item(std::uint8_t storage, unsigned long version) {
    return "/B/Metadata/" + Guid(storage).ToAStr() + "." + std::to_string(version);
}

/// A backup with three checkpoints. Storage 1 changes a bank at a time, storage 2 once, storage 4 is in the first
/// alone, storage 5 in the second alone.
class BackupFaults : public testing::Test {
protected:
    void SetUp() override {
        (void)CCloudBackup::CreateNew("B", base_, base_, {}, {});
        for (const std::uint8_t storage : std::array<std::uint8_t, 4>{1, 2, 4, 5}) {
            PutBlock(base_, storage, 1);
            PutBlock(base_, storage, 2);
        }
        const auto backup = Open(base_);
        (void)backup->CreateCheckpoint(First());
        (void)backup->CreateCheckpoint(Second(backup->LoadCheckpoint(1)));
        (void)backup->CreateCheckpoint(Third(backup->LoadCheckpoint(2)));
        const std::set<digest::md5_digest_t> both = {Block(1), Block(2)};
        model_.SetCheckpoint(1, {{Guid(1), {"HEADbankmore", both}}, {Guid(2), {"h2", both}}, {Guid(4), {"h4", both}}});
        model_.SetCheckpoint(2, {{Guid(1), {"HeadBANKmore", both}}, {Guid(2), {"h2", both}}, {Guid(5), {"h5", both}}});
        model_.SetCheckpoint(3, {{Guid(1), {"headBANKMORE", {Block(2)}}}, {Guid(2), {"H2", both}}});
        model_.SetCheckpoint(4,
                             {{Guid(1), {"head4444MORE", {Block(2)}}}, {Guid(2), {"H2", both}}, {Guid(6), {"h6", {}}}});
        model_.Check(base_, {1, 2, 3});
    }

    void TearDown() override {
        options_t::GetInst().EnableSingleFileCloudMetadata(false);
        options_t::GetInst().SetBlockDeletionConcurrency(1);
    }

    static SChangedStorage Whole(std::uint8_t storage, unsigned long version, const std::string& header) {
        return {Storage(Guid(storage), version, header.size()), {{0, Part(header)}}};
    }
    /// A commit of storage 1: a header and one bank; the other keeps its place.
    static SChangedStorage WithBank(unsigned long version, const std::string& header, unsigned long offset,
                                    const std::string& bank, const CCloudBackup::checkpoint_ptr& previous) {
        const auto& kept = previous->GetStorageById(Guid(1)).GetCloudMetadataPartDescriptionsMap();
        return {Storage(Guid(1), version, 12, kept), {{0, Part(header)}, {offset, Part(bank)}}};
    }

    static SCheckpointCreationParams First() {
        const SChangedStorage storage = {Storage(Guid(1), 1, 12),
                                         {{0, Part("HEAD")}, {4, Part("bank")}, {8, Part("more")}}};
        return {"1", "", {}, {storage, Whole(2, 1, "h2"), Whole(4, 1, "h4")}};
    }
    static SCheckpointCreationParams Second(const CCloudBackup::checkpoint_ptr& previous) {
        return {"2",
                longTermContent,
                {previous->GetStorageById(Guid(2))},
                {WithBank(2, "Head", 4, "BANK", previous), Whole(5, 1, "h5")}};
    }
    static SCheckpointCreationParams Third(const CCloudBackup::checkpoint_ptr& previous) {
        return {"3", "", {}, {WithBank(3, "head", 8, "MORE", previous), Whole(2, 2, "H2")}};
    }
    static SCheckpointCreationParams Fourth(const CCloudBackup::checkpoint_ptr& previous) {
        return {"4",
                longTermContent,
                {previous->GetStorageById(Guid(2))},
                {WithBank(4, "head", 4, "4444", previous), Whole(6, 1, "h6")}};
    }

    std::function<void(const store_ptr&)> Whole(const ids_t& required) {
        return [this, required](const store_ptr& store) { model_.Check(store, required); };
    }

    const store_ptr base_ = std::make_shared<clients::CMemoryClient>();
    BackupModel model_;
};

}  // namespace test
