#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/keys/KeyRing.h"
#include "agent/meta/MetaState.h"
#include "agent/run/LocalState.h"
#include "agent/run/SetDocument.h"
#include "cloudbackuplib/CloudBackup.h"
#include "common/stg_extent.h"

namespace agent {

/// Reads many versions of storages' metadata, each object of them brought from the store at most once.
///
/// Versions share most of their banks. Each object that comes is put behind the others in one file of a scratch folder
/// (as large as all that was brought), where later versions find it; a copy of the metadata that this machine has
/// serves as well. What is read is checked as ever. For one thread. Failures are exc::CRuntimeExc that name the object,
/// or those of the client.
class CVersionReader {
public:
    /// `setFolder` is where this machine's copies lie. The backup outlives the reader.
    CVersionReader(const cloudbackuplib::backup::CCloudBackup& cloudBackup, std::string setFolder, key_ring_ptr keys);

    /// Has the objects of that version read from this machine's copy, when it is the very file.
    void OfferLocalCopy(const cloudbackuplib::backup::checkpoint::CCloudStorageDescriptor& storage, const SRoot& root);

    /// Throws exc::CRuntimeExc when what the store has is not what the root names.
    [[nodiscard]] CMetaState Read(const cloudbackuplib::backup::checkpoint::CCloudStorageDescriptor& storage,
                                  const SRoot& root);

private:
    using extent_ptr = std::shared_ptr<io::stg::IStgExtent>;
    /// Where the bytes of an object lie on this machine.
    struct SPlace {
        extent_ptr extent;
        std::uint64_t offset = 0;
        std::uint64_t size = 0;
    };
    class CVersionExtent;

    [[nodiscard]] std::string HeaderPath(
        const cloudbackuplib::backup::checkpoint::CCloudStorageDescriptor& storage) const;
    void Fetch(const std::vector<std::string>& paths);
    void Keep(const std::string& path, const cnt::array_t<char>& bytes);
    [[nodiscard]] CVersionExtent Assemble(
        const cloudbackuplib::backup::checkpoint::CCloudStorageDescriptor& storage) const;

    const cloudbackuplib::backup::CCloudBackup& backup_;
    const std::string setFolder_;
    const key_ring_ptr keys_;
    const CScratchFolder scratch_;
    posix::posix_file_t file_;
    const extent_ptr fileExtent_;
    std::uint64_t fileEnd_ = 0;
    std::map<std::string, SPlace> objects_;
};

}  // namespace agent
