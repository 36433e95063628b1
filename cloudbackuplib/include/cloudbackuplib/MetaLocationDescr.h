#pragma once

#include <map>
#include <memory>

#include "common/cnt.h"
#include "common/export.h"
#include "common/optional.h"

namespace cloudbackuplib::backup {

/// One part of a storage's local metadata, held in a map under its offset in bytes.
struct CB_EXPORT SMetaLocationDescr {
    /// In bytes.
    unsigned long Size = 0;
    /// Leave the part out of the next upload unless it is among the updated ones.
    bool SkipUnlessUpdated = false;
    /// The part's bytes, exactly `Size` of them, once they are read.
    COptionalParameter<std::shared_ptr<cnt::array_t<char>>> Data;

    bool operator==(const SMetaLocationDescr&) const = default;
};

/// The parts of a storage's metadata by their offsets; the one at 0 is the header.
using parts_map_t = std::map<unsigned long, SMetaLocationDescr>;

}  // namespace cloudbackuplib::backup
