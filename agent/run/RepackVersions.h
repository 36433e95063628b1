#pragma once

#include <optional>
#include <string>

#include "agent/keys/DataKey.h"
#include "agent/meta/MetaFile.h"
#include "agent/run/RepackChunks.h"
#include "cloudbackuplib/CloudBackup.h"

namespace agent {

/// A metadata version that stands for another one.
struct SWrittenVersion {
    cloudbackuplib::backup::checkpoint::CCloudStorageDescriptor descriptor;
    std::string headerSha256;
};

/// Writes versions of one storage's metadata anew, with chunks at their new places, and uploads them. No checkpoint is
/// touched: nothing refers to them yet.
///
/// Versions come in ascending order; one that goes on from the one before is stored as that one's banks and what
/// changed, as the runs had stored them. For one thread. Failures are exceptions.
class CVersionWriter {
public:
    /// `key` seals the metadata; none for no encryption. Files are made in `folder`. What is given outlives the writer.
    CVersionWriter(const cloudbackuplib::backup::CCloudBackup& cloudBackup, const guid::guid_t& storageId,
                   data_key_ptr key, std::string folder, const chunk_moves_t& moves);

    /// Nothing when no chunk of it has moved.
    [[nodiscard]] std::optional<SWrittenVersion> Write(
        const cloudbackuplib::backup::checkpoint::CCloudStorageDescriptor& old, const CMetaState& state);
    /// The file of the version written last; empty when there is none.
    [[nodiscard]] const std::string& GetLastFile() const { return lastFile_; }

private:
    struct SPlaced {
        const SBlockExternalId* block = nullptr;
        std::uint32_t offset = 0;
    };
    [[nodiscard]] SPlaced Place(const CMetaState& state, const SChunk& chunk) const;
    [[nodiscard]] bool HasMoved(const CMetaState& state) const;
    [[nodiscard]] std::optional<SMetaChanges> ChangesFromLast(const CMetaState& state) const;
    /// Adds the chunks from there on, and the blocks that are not known.
    void AddChunks(const CMetaState& state, std::size_t first, const std::vector<SBlockExternalId>& known,
                   SMetaChanges& changes) const;
    void CheckSame(const CMetaState& state) const;
    [[nodiscard]] std::uint64_t NewVersion(std::uint64_t old) const;
    [[nodiscard]] cloudbackuplib::backup::checkpoint::CCloudStorageDescriptor Upload(
        const cloudbackuplib::backup::checkpoint::CCloudStorageDescriptor& old, const SMetaLayout& layout);

    const cloudbackuplib::backup::CCloudBackup& backup_;
    const guid::guid_t storageId_;
    const data_key_ptr key_;
    const std::string folder_;
    const chunk_moves_t& moves_;

    // The version written last.
    CMetaState last_;
    std::string lastFile_;
    std::uint64_t lastVersion_ = 0;
    cloudbackuplib::backup::checkpoint::cloud_parts_map_t lastParts_;
};

}  // namespace agent
