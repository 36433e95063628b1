#include "clients/memory/MemoryClient.h"
#include "cloudbackuplib/CloudBackupSession.h"
#include "cloudbackuplib/CloudExternalRepository.h"
#include "common/posix.h"
#include "common/util.h"

namespace backup = cloudbackuplib::backup;

/// The host's own storage engine; here a storage's metadata is a plain file.
struct SExtent : io::stg::IStgExtent {
    explicit SExtent(const std::string& path) : file(posix::posix_file_t::Open4Read(path)) {}
    std::size_t Read(std::uint64_t offset, void* data, std::size_t size) override {
        return file.ReadAt(offset, data, size);
    }
    std::uint64_t GetSize() override { return file.GetSize(); }
    posix::posix_file_t file;
};

int main(int, char** argv) {
    const std::string metadata = argv[1];  // a storage's metadata file, as its writer left it
    backup::SCloudRepositoryInfo info;
    info.folderName = "example";
    info.client = backup::SCloudRepositoryClientInfo{guid::guid_t::CreateNew(), "example", "this machine"};

    auto repository = backup::CCloudExternalRepository::CreateNew(std::make_shared<clients::CMemoryClient>(), info);
    auto cloudBackup = repository->CreateBackup({}, "documents");
    auto session = backup::CCloudBackupSession::StartSession(cloudBackup, cloudBackup->GetLastCheckpointId(), false);

    const auto storage = guid::guid_t::CreateNew();
    session->PrepareStorageForAccess(storage, metadata, 0);
    auto sink = session->GetStorageUpdateSink(storage, std::make_shared<SExtent>(metadata));
    sink->Update(1, {}, {}, util::fs_file_size(metadata));  // version 1; the whole file is its header

    auto checkpoint = session->CreateCheckpoint("what the host knows of this state", "");
    return cloudBackup->LoadCheckpoint(checkpoint->GetId())->GetStorageById(storage).GetMetaVersion() == 1 ? 0 : 1;
}
