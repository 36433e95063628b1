#include <algorithm>

#include "cloudbackuplib/CloudBackup.h"
#include "cloudbackuplib/CloudPaths.h"
#include "cloudbackuplib/backup/MetadataParts.h"
#include "cloudbackuplib/backup/TaskGroup.h"
#include "common/logging.h"
#include "common/posix.h"

namespace cloudbackuplib::backup {

namespace {

/// What a download allocates before it has received anything: a document's claim alone costs no memory.
constexpr unsigned long largestFirstBuffer = 1UL << 20U;

/// One download of a storage's metadata into a local file, which is empty whenever it is not complete.
class CMetadataDownload {
public:
    CMetadataDownload(const CCloudBackup& backup, const checkpoint::CCloudStorageDescriptor& storage,
                      const std::string& localPath)
        : backup_(backup), storage_(storage), file_(posix::posix_file_t::OpenOrCreate4Write(localPath, false, 0)) {}

    void Run() {
        try {
            file_.Truncate(0);
            SaveHeader();
            SaveBanks();
            CheckSize();
            // A power cut must not leave a file of the right size with nothing in it.
            file_.Sync();
        } catch (...) {
            EmptyFile();
            throw;
        }
    }

private:
    void SaveHeader() {
        Receive(paths::GetBackupMetaItemPath(backup_.GetBackupId(), storage_.GetFileName()));
        logging::Library().Info("Saving local storage metadata header. Size: '%1'", buffer_->size());
        file_.SeekFromBegin(0);
        file_.Write(*buffer_);
    }

    void SaveBanks() {
        logging::Library().Info("Downloading additional metadata parts for storage %1", storage_.GetFileName());
        for (const auto& [offset, bank] : storage_.GetCloudMetadataPartDescriptionsMap()) {
            logging::Library().Info("Downloading bank '%1' for storage '%2'", bank.filePath, storage_.GetFileName());
            ReceiveBank(bank.filePath);
            CheckPosition(offset);
            logging::Library().Info("Saving local storage metadata part. Size: '%1', offset: '%2'", buffer_->size(),
                                    offset);
            file_.Write(*buffer_);
        }
    }

    void Receive(const std::string& path) { backup_.GetBackupClient()->DownloadFileAsync(path, buffer_)->Wait(); }

    void ReceiveBank(const std::string& path) {
        try {
            Receive(path);
        } catch (const std::exception& e) {
            exc::RegenTraceExc(e, "Cannot download bank blob [%1] for storage [%2]", path, storage_.GetFileName());
        }
    }

    void CheckPosition(unsigned long offset) const {
        if (const std::uint64_t position = file_.GetPosition(); position != offset) {
            throw exc::CRuntimeExc("Mismatch between file position [%1] and next bank offset [%2]", position, offset);
        }
    }

    void CheckSize() const {
        if (const std::uint64_t size = file_.GetSize(); size != storage_.GetMetaSize()) {
            throw exc::CRuntimeExc(
                "Downloaded storage size differs from declared. StorageId: [%1], downloaded: [%2], declared: [%3]",
                storage_.GetStorageId(), size, storage_.GetMetaSize());
        }
    }

    void EmptyFile() {
        try {
            file_.Truncate(0);
        } catch (const std::exception& e) {
            logging::Library().Warn("Cannot empty the local storage metadata '%1': %2", file_.GetPath(), e.what());
        }
    }

    const CCloudBackup& backup_;
    const checkpoint::CCloudStorageDescriptor& storage_;
    posix::posix_file_t file_;
    /// One buffer for all objects; each download sets it to the bytes received.
    const std::shared_ptr<cnt::array_t<char>> buffer_ =
        std::make_shared<cnt::array_t<char>>(std::min(storage_.GetMetaSize(), largestFirstBuffer));
};

}  // namespace

void CCloudBackup::UploadMetadata(const guid::guid_t& storageId, unsigned long version,
                                  const parts_map_t& parts) const {
    const std::string headerPath = metadata::HeaderPath(backupId_, storageId, version);
    logging::trace_t scope(logging::Library(), "Starting uploading metadata '%1'", headerPath);
    unsigned long total = 0;
    try {
        metadata::CheckComplete(storageId, parts);
        CTaskGroup uploads(*client_);
        uploads.Add(client_->UploadFileAsync(headerPath, parts.begin()->second.Data.Get()));
        const std::string folder = metadata::PartsFolder(backupId_, storageId, version);
        for (auto part = std::next(parts.begin()); part != parts.end(); ++part) {
            const std::string path = metadata::PartPath(folder, part->first);
            logging::Library().Info(
                "Uploading storage metadata part to cloud. Cloud path: '%1', metadata part size: '%2'", path,
                part->second.Size);
            uploads.Add(client_->UploadFileAsync(path, part->second.Data.Get()));
            total += part->second.Size;
        }
        uploads.Wait();
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e, "Failed to upload storage metadata to cloud. Cloud path: '%1'", headerPath);
    }
    scope.Close("Uploaded [%1] bytes", total);
}

void CCloudBackup::DonwloadStorageMeta(const checkpoint::CCloudStorageDescriptor& storage,
                                       const std::string& localPath) const {
    logging::Library().Tr("Downloading storage metadata '%1' from cloud. Local path: '%2'", storage.GetFileName(),
                          localPath);
    try {
        CMetadataDownload(*this, storage, localPath).Run();
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e, "Failed to download storage metadata '%1' from cloud. Local path: '%2'",
                           storage.GetFileName(), localPath);
    }
}

void CCloudBackup::UpdateMetaLocationMapForCheckpoint(const SChangedStorage& changed,
                                                      checkpoint::cloud_parts_map_t& cloudParts) const {
    const std::string folder =
        metadata::PartsFolder(backupId_, changed.descriptor.GetStorageId(), changed.descriptor.GetMetaVersion());
    for (const auto& [offset, part] : changed.parts) {
        if (offset == 0) {
            continue;  // the header, found by the descriptor's file name
        }
        const std::string path = metadata::PartPath(folder, offset);
        cloudParts.insert_or_assign(offset, checkpoint::SCloudMetadataPartDescription{path, offset, part.Size});
        logging::Library().Dbg("Updated metadata part: Path: [%1] offset: [%2] size: [%3]", path, offset, part.Size);
    }
}

}  // namespace cloudbackuplib::backup
