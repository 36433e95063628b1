#pragma once

#include <string>

#include "cloudbackuplib/CloudStorageDescriptor.h"
#include "cloudbackuplib/MetaLocationDescr.h"
#include "common/guid.h"

/// How a storage's metadata is cut into objects. Pure functions, safe from any thread.
namespace cloudbackuplib::backup::metadata {

/// The path of the header's object: "<storage>.<version>" among the backup's metadata items.
[[nodiscard]] std::string HeaderPath(const std::string& backupId, const guid::guid_t& storageId, unsigned long version);
/// The folder of the other parts' objects.
[[nodiscard]] std::string PartsFolder(const std::string& backupId, const guid::guid_t& storageId,
                                      unsigned long version);
[[nodiscard]] std::string PartPath(const std::string& partsFolder, unsigned long offset);

/// Throws exc::CRuntimeExc unless there is a header and every part has its bytes, exactly as many as it says.
void CheckComplete(const guid::guid_t& storageId, const parts_map_t& parts);

/// Whether header and parts, laid one behind the other without gap or overlap, make up the whole metadata.
[[nodiscard]] bool CoverExactly(unsigned long headerSize, const checkpoint::cloud_parts_map_t& parts,
                                unsigned long metaSize);

}  // namespace cloudbackuplib::backup::metadata
