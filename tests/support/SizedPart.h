#pragma once

#include "cloudbackuplib/StgMetaCache.h"

namespace test {

inline cloudbackuplib::backup::SMetaLocationDescr SizedPart(unsigned long size, bool skip = false) {
    cloudbackuplib::backup::SMetaLocationDescr part;
    part.Size = size;
    part.SkipUnlessUpdated = skip;
    return part;
}

}  // namespace test
