#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cloudbackuplib/CloudDxrDescriptor.h"
#include "cloudbackuplib/CloudStorageDescriptor.h"
#include "cloudbackuplib/OwnerDescriptor.h"
#include "common/export.h"
#include "common/xml.h"

namespace cloudbackuplib::backup::checkpoint {

/// The two flavours of a checkpoint document: readable by older readers, and the long-term copy.
enum class DxrContentFeature { compatible = 0, longTerm = 1 };

/// "compatible" or "longTerm"; throws exc::CRuntimeExc for any other value.
[[nodiscard]] CB_EXPORT std::string ToString(DxrContentFeature feature);

/// One numbered state of a backup: which metadata version of each storage belongs to it, the backup-level content, the
/// long-term content when there is one, and the owner.
///
/// Immutable once built, handed around by shared pointer, safe from any thread. Reading a document that is damaged
/// throws exc::CRuntimeExc and builds nothing.
class CB_EXPORT CCloudCheckpoint {
public:
    CCloudCheckpoint(const std::vector<CCloudStorageDescriptor>& storages, const CCloudDxrDescriptor& dxr,
                     const CCloudDxrDescriptor& dxrLongTerm, const COwnerDescriptor& owner, unsigned long id,
                     int formatVersion);
    /// With the format version that the host's options ask for: 1 for single-file metadata, else 2.
    CCloudCheckpoint(const std::vector<CCloudStorageDescriptor>& storages, const CCloudDxrDescriptor& dxr,
                     const CCloudDxrDescriptor& dxrLongTerm, const COwnerDescriptor& owner, unsigned long id);

    /// The state of a backup that has no checkpoint yet: no storages, id 0.
    [[nodiscard]] static std::shared_ptr<CCloudCheckpoint> CreateEmpty();

    [[nodiscard]] const std::vector<CCloudStorageDescriptor>& GetStorages() const { return storages_; }
    [[nodiscard]] const CCloudDxrDescriptor& GetDxr() const { return dxr_; }
    [[nodiscard]] const CCloudDxrDescriptor& GetDxrLongTerm() const { return dxrLongTerm_; }
    [[nodiscard]] const COwnerDescriptor& GetOwner() const { return owner_; }
    [[nodiscard]] unsigned long GetId() const { return id_; }
    [[nodiscard]] int GetFormatVersion() const { return formatVersion_; }

    /// The first storage with that id; throws exc::CRuntimeExc when there is none.
    [[nodiscard]] const CCloudStorageDescriptor& GetStorageById(const guid::guid_t& id) const;
    /// The same without throwing: on a match copies the descriptor into `out`, else leaves it alone.
    bool FindStorageById(const guid::guid_t& id, CCloudStorageDescriptor& out) const;

    /// Writes into `root`, the document element that the caller made.
    void Serialize(xml::xml_holder_t& root, DxrContentFeature feature) const;
    [[nodiscard]] static std::shared_ptr<CCloudCheckpoint> Deserialize(const xml::xml_holder_t& root,
                                                                       DxrContentFeature feature);

private:
    std::vector<CCloudStorageDescriptor> storages_;
    CCloudDxrDescriptor dxr_;
    CCloudDxrDescriptor dxrLongTerm_;
    COwnerDescriptor owner_;
    unsigned long id_;
    int formatVersion_;
};

}  // namespace cloudbackuplib::backup::checkpoint
