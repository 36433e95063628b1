#include "agent/run/VersionReader.h"

#include <algorithm>
#include <utility>

#include "agent/meta/FileExtent.h"
#include "agent/meta/MetaFile.h"
#include "agent/meta/MetaLimits.h"
#include "agent/run/RootMetadata.h"
#include "cloudbackuplib/CloudPaths.h"
#include "common/exc.h"

namespace agent {

namespace backup = cloudbackuplib::backup;
using backup::checkpoint::CCloudStorageDescriptor;

namespace {

constexpr std::size_t mostDownloads = 8;

}  // namespace

/// A metadata file whose parts lie in several places.
class CVersionReader::CVersionExtent : public io::stg::IStgExtent {
public:
    /// The next part; they stand one behind the other.
    void Add(std::uint64_t offset, const SPlace& place) {
        if (offset != size_) {
            throw exc::CRuntimeExc("a part begins at %1 where the one before ends at %2", offset, size_);
        }
        parts_.emplace(offset, place);
        size_ += place.size;
    }

    std::size_t Read(std::uint64_t offset, void* buffer, std::size_t size) override {
        std::size_t done = 0;
        while (done < size && offset + done < size_) {
            const auto& [begin, place] = *std::prev(parts_.upper_bound(offset + done));
            const std::uint64_t within = offset + done - begin;
            const std::size_t wanted = std::min<std::uint64_t>(size - done, place.size - within);
            const std::size_t came =
                place.extent->Read(place.offset + within, static_cast<char*>(buffer) + done, wanted);
            done += came;
            if (came != wanted) {
                break;
            }
        }
        return done;
    }
    [[nodiscard]] std::uint64_t GetSize() override { return size_; }

private:
    std::map<std::uint64_t, SPlace> parts_;  // none is empty
    std::uint64_t size_ = 0;
};

CVersionReader::CVersionReader(const backup::CCloudBackup& cloudBackup, std::string setFolder, key_ring_ptr keys)
    : backup_(cloudBackup),
      setFolder_(std::move(setFolder)),
      keys_(std::move(keys)),
      scratch_(setFolder_),
      file_(posix::posix_file_t::OpenOrCreate4Write(scratch_.GetPath() + "/objects", false, 0)),
      fileExtent_(std::make_shared<CFileExtent>(file_.GetPath())) {}

std::string CVersionReader::HeaderPath(const CCloudStorageDescriptor& storage) const {
    return backup::paths::GetBackupMetaItemPath(backup_.GetBackupId(), storage.GetFileName());
}

void CVersionReader::OfferLocalCopy(const CCloudStorageDescriptor& storage, const SRoot& root) {
    const std::string path = LocalMetaPath(setFolder_, root.storageId);
    if (LocalMetaVersion(path, root) == 0) {
        return;
    }
    const auto copy = std::make_shared<CFileExtent>(path);
    objects_.insert_or_assign(HeaderPath(storage), SPlace{copy, 0, meta::headerSize});
    for (const auto& [offset, part] : storage.GetCloudMetadataPartDescriptionsMap()) {
        objects_.insert_or_assign(part.filePath, SPlace{copy, offset, part.size});
    }
}

CMetaState CVersionReader::Read(const CCloudStorageDescriptor& storage, const SRoot& root) {
    std::vector<std::string> paths{HeaderPath(storage)};
    for (const auto& [offset, part] : storage.GetCloudMetadataPartDescriptionsMap()) {
        paths.push_back(part.filePath);
    }
    std::erase_if(paths, [&](const std::string& path) { return objects_.contains(path); });
    Fetch(paths);
    CVersionExtent extent = Assemble(storage);
    SMeta meta = ReadMeta(extent, HeaderPath(storage), *keys_);
    if (meta.header.storageId != root.storageId || meta.header.sha256.ToAStr() != root.headerSha256) {
        throw exc::CRuntimeExc(
            "The metadata of '%1' (storage %2) in the repository is not the one that its checkpoint was made with",
            EscapePath(root.path), root.storageId);
    }
    return std::move(meta.state);
}

void CVersionReader::Fetch(const std::vector<std::string>& paths) {
    auto& client = *backup_.GetBackupClient();
    std::vector<cloudclientlib::ICloudClient::buffer_ptr> buffers(paths.size());
    const auto start = [&](std::size_t index) {
        buffers[index] = std::make_shared<cnt::array_t<char>>();
        return client.DownloadFileAsync(paths[index], buffers[index]);
    };
    const auto finish = [&](std::size_t index) { Keep(paths[index], *std::exchange(buffers[index], nullptr)); };
    const std::size_t limit = std::clamp<std::size_t>(client.GetConcurrentTaskLimit(), 1, mostDownloads);
    task::RunWindow(paths.size(), limit, start, finish);
}

void CVersionReader::Keep(const std::string& path, const cnt::array_t<char>& bytes) {
    file_.WriteAt(fileEnd_, bytes);
    objects_.insert_or_assign(path, SPlace{fileExtent_, fileEnd_, bytes.size()});
    fileEnd_ += bytes.size();
}

CVersionReader::CVersionExtent CVersionReader::Assemble(const CCloudStorageDescriptor& storage) const {
    const std::string header = HeaderPath(storage);
    try {
        CVersionExtent extent;
        extent.Add(0, objects_.at(header));
        for (const auto& [offset, part] : storage.GetCloudMetadataPartDescriptionsMap()) {
            const SPlace& place = objects_.at(part.filePath);
            if (place.size != part.size || place.size == 0) {
                throw exc::CRuntimeExc("'%1' has %2 bytes, not %3", part.filePath, place.size, part.size);
            }
            extent.Add(offset, place);
        }
        return extent;
    } catch (const exc::CRuntimeExc& failure) {
        exc::RegenTraceExc(failure, "Metadata '%1' does not hold together", header);
    }
}

}  // namespace agent
