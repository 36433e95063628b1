#include "cloudbackuplib/backup/MetadataParts.h"

#include "cloudbackuplib/CloudPaths.h"
#include "common/exc.h"
#include "common/util.h"

namespace cloudbackuplib::backup::metadata {

namespace {

void CheckData(const guid::guid_t& storageId, unsigned long offset, const SMetaLocationDescr& part) {
    if (!part.Data.IsSet() || !part.Data.Get()) {
        throw exc::CRuntimeExc("Metadata part at offset '%1' of storage '%2' has no data", offset, storageId);
    }
    if (part.Data.Get()->size() != part.Size) {
        throw exc::CRuntimeExc("Metadata part at offset '%1' of storage '%2' has '%3' bytes of data instead of '%4'",
                               offset, storageId, part.Data.Get()->size(), part.Size);
    }
}

}  // namespace

std::string HeaderPath(const std::string& backupId, const guid::guid_t& storageId, unsigned long version) {
    return paths::GetBackupMetaItemPath(backupId, exc::Format("%1.%2", storageId, version));
}

std::string PartsFolder(const std::string& backupId, const guid::guid_t& storageId, unsigned long version) {
    return HeaderPath(backupId, storageId, version) + "_metaparts";
}

std::string PartPath(const std::string& partsFolder, unsigned long offset) {
    return partsFolder + "/" + util::str_from_uint64(offset);
}

void CheckComplete(const guid::guid_t& storageId, const parts_map_t& parts) {
    if (parts.empty() || parts.begin()->first != 0) {
        throw exc::CRuntimeExc("No header info in metadata parts");
    }
    for (const auto& [offset, part] : parts) {
        CheckData(storageId, offset, part);
    }
}

bool CoverExactly(unsigned long headerSize, const checkpoint::cloud_parts_map_t& parts, unsigned long metaSize) {
    unsigned long end = headerSize;
    for (const auto& [offset, part] : parts) {
        if (offset != end || __builtin_add_overflow(end, part.size, &end)) {
            return false;
        }
    }
    return end == metaSize;
}

}  // namespace cloudbackuplib::backup::metadata
