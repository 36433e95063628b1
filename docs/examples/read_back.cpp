// A host commits one storage as a checkpoint, and later, as another process would, reads it back.
#include <fstream>
#include <iostream>
#include <iterator>

#include "clients/memory/MemoryClient.h"
#include "cloudbackuplib/CloudBackupSession.h"
#include "cloudbackuplib/CloudExternalRepository.h"
#include "common/posix.h"
#include "common/util.h"

namespace backup = cloudbackuplib::backup;

namespace {

/// The host's storage engine: here a storage's metadata is a plain file, and all of it is the header.
class CFileExtent : public io::stg::IStgExtent {
public:
    explicit CFileExtent(const std::string& path) : file_(posix::posix_file_t::Open4Read(path)) {}
    std::size_t Read(std::uint64_t offset, void* data, std::size_t size) override {
        return file_.ReadAt(offset, data, size);
    }
    std::uint64_t GetSize() override { return file_.GetSize(); }

private:
    posix::posix_file_t file_;
};

std::string Content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

backup::SCloudRepositoryInfo ThisMachine(const guid::guid_t& client) {
    return {"example", backup::SCloudRepositoryClientInfo{client, "example", "this machine"}};
}

/// Writes the state of the file as the backup's next checkpoint.
unsigned long Commit(backup::ICloudRepository& repository, const guid::guid_t& storage, const std::string& path) {
    const auto documents = repository.CreateBackup({}, "documents");
    const auto session = backup::CCloudBackupSession::StartSession(documents, documents->GetLastCheckpointId(), false);
    session->PrepareStorageForAccess(storage, path, 0);
    const auto sink = session->GetStorageUpdateSink(storage, std::make_shared<CFileExtent>(path));
    sink->Update(1, {}, {}, util::fs_file_size(path));
    return session->CreateCheckpoint("what the host knows of this state", "")->GetId();
}

/// Brings the storage back, as it was at the checkpoint, to the path.
void ReadBack(backup::ICloudRepository& repository, unsigned long checkpoint, const guid::guid_t& storage,
              const std::string& path) {
    const auto documents = repository.LoadBackup({}, "documents", true);
    const auto session = backup::CCloudBackupSession::StartSession(documents, checkpoint, true);
    session->PrepareStorageForAccess(storage, path, 0);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: read_back FILE TARGET\n";
        return 2;
    }
    const auto client = std::make_shared<clients::CMemoryClient>();
    const auto machine = guid::guid_t::CreateNew();
    const auto storage = guid::guid_t::CreateNew();

    const auto made = backup::CCloudExternalRepository::CreateNew(client, ThisMachine(machine));
    const unsigned long checkpoint = Commit(*made, storage, argv[1]);

    const auto opened = backup::CCloudExternalRepository::OpenExisting(client, ThisMachine(machine));
    ReadBack(*opened, checkpoint, storage, argv[2]);

    const bool same = Content(argv[1]) == Content(argv[2]);
    std::cout << "checkpoint " << checkpoint << " came back " << (same ? "byte for byte" : "damaged") << "\n";
    return same ? 0 : 1;
}
