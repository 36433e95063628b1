// Keeps the newest checkpoints of a backup and gives the space of the others back.
#include <iostream>

#include "clients/memory/MemoryClient.h"
#include "cloudbackuplib/CloudExternalRepository.h"
#include "cloudbackuplib/CloudPaths.h"

namespace backup = cloudbackuplib::backup;

namespace {

constexpr std::size_t kept = 3;

digest::md5_digest_t UploadBlock(backup::CCloudBackup& documents, const guid::guid_t& storage,
                                 const std::string& bytes) {
    const auto digest = digest::Md5(bytes);
    const auto path =
        backup::paths::GetBackupBlockPath(documents.GetBackupId(), storage, backup::paths::DigestToBlockName(digest));
    documents.GetBackupClient()
        ->UploadFileAsync(path, std::make_shared<cnt::array_t<char>>(bytes.begin(), bytes.end()))
        ->Wait();
    return digest;
}

/// Commits a state of the storage; real hosts do it through a session (see read_back.cpp).
void Commit(backup::CCloudBackup& documents, const guid::guid_t& storage, const std::string& metadata) {
    const unsigned long version = documents.GetLastCheckpointId() + 1;
    backup::SMetaLocationDescr header;
    header.Size = metadata.size();
    header.Data.Set(std::make_shared<cnt::array_t<char>>(metadata.begin(), metadata.end()));
    backup::SCheckpointCreationParams params;
    params.dxrContent = "state " + std::to_string(version);
    params.changedStorages.push_back(
        {{storage, storage.ToAStr(), version, metadata.size(), backup::CloudStorageBlockStoreSchema::legacy, {}},
         {{0, header}}});
    documents.CreateCheckpoint(params);
}

/// The checkpoints to delete: all but the newest.
std::vector<unsigned long> Outdated(backup::CCloudBackup& documents) {
    const auto ids = documents.EnumCheckpoints();
    const std::size_t count = ids.size() > kept ? ids.size() - kept : 0;
    return {ids.begin(), std::next(ids.begin(), static_cast<std::ptrdiff_t>(count))};
}

}  // namespace

int main() {
    const auto client = std::make_shared<clients::CMemoryClient>();
    const backup::SCloudRepositoryInfo info = {
        "example", backup::SCloudRepositoryClientInfo{guid::guid_t::CreateNew(), "example", "this machine"}};
    const auto repository = backup::CCloudExternalRepository::CreateNew(client, info);
    const auto documents = repository->CreateBackup({}, "documents");
    const auto storage = guid::guid_t::CreateNew();

    std::vector<digest::md5_digest_t> blocks;
    for (int day = 1; day <= 7; ++day) {
        blocks.push_back(UploadBlock(*documents, storage, "what day " + std::to_string(day) + " added"));
        Commit(*documents, storage, "metadata of day " + std::to_string(day));
    }

    documents->DeleteCheckpoints(Outdated(*documents));
    // The host knows which blocks its remaining states use; here each state uses the block of its day.
    documents->ClearOrphanedBlocks(storage, {blocks.end() - kept, blocks.end()});

    std::cout << "kept checkpoints:";
    for (const unsigned long id : documents->EnumCheckpoints()) {
        std::cout << " " << id;
    }
    std::cout << "\nkept bytes of blocks: " << documents->GetBlockStoreSize(storage) << "\n";
    return 0;
}
