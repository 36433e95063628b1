#pragma once

#include <memory>

#include "cloudbackuplib/IMetaUpdateSink.h"
#include "cloudbackuplib/StgMetaCache.h"
#include "common/export.h"
#include "common/guid.h"
#include "common/stg_extent.h"

namespace cloudbackuplib::backup::cache {

/// Turns the reports of one storage's writer into updates of the session's cache.
///
/// Keeps the writer's extent alive as long as it lives; the cache refers to it weakly. Safe from any thread, by the
/// cache's mutex. Failures are the cache's.
class CB_EXPORT CCacheUpdateSink : public IMetaUpdateSink {
public:
    /// Registers the extent at once: from now on the storage counts as changed. The last argument is not used.
    CCacheUpdateSink(const guid::guid_t& storageId, std::shared_ptr<CStgMetaCache> cache,
                     std::shared_ptr<io::stg::IStgExtent> extent, unsigned long unused);

    void Update(unsigned long version, const parts_map_t& updatedParts, const parts_map_t& metaParts,
                unsigned long headerSize) override;

private:
    const guid::guid_t storageId_;
    const std::shared_ptr<io::stg::IStgExtent> extent_;
    const std::shared_ptr<CStgMetaCache> cache_;
};

}  // namespace cloudbackuplib::backup::cache
