#pragma once

#include "cloudbackuplib/MetaLocationDescr.h"
#include "common/export.h"

namespace cloudbackuplib::backup {

/// Where a storage's writer reports each flush of its metadata. Given out by a session, one per storage; safe from any
/// thread. A report that throws has not been taken.
class CB_EXPORT IMetaUpdateSink {
public:
    virtual ~IMetaUpdateSink() = default;
    /// `version` is the metadata's version from now on; `updatedParts` the parts written by this flush; `metaParts` the
    /// whole layout (parts that need no upload unless updated bear SkipUnlessUpdated); `headerSize` the size of the
    /// part at offset 0, in bytes.
    virtual void Update(unsigned long version, const parts_map_t& updatedParts, const parts_map_t& metaParts,
                        unsigned long headerSize) = 0;
};

}  // namespace cloudbackuplib::backup
