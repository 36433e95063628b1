#include "cloudbackuplib/CacheUpdateSink.h"

#include <utility>

#include "common/exc.h"

namespace cloudbackuplib::backup::cache {

CCacheUpdateSink::CCacheUpdateSink(const guid::guid_t& storageId, std::shared_ptr<CStgMetaCache> cache,
                                   std::shared_ptr<io::stg::IStgExtent> extent, unsigned long /*unused*/)
    : storageId_(storageId), extent_(std::move(extent)), cache_(std::move(cache)) {
    std::string localPath;
    unsigned long version = 0;
    if (!cache_->Find(storageId_, localPath, version)) {
        throw exc::CRuntimeExc("Storage '%1' not found in cache", storageId_);
    }
    cache_->Update(storageId_, version, extent_, {}, {}, 0);
}

void CCacheUpdateSink::Update(unsigned long version, const parts_map_t& updatedParts, const parts_map_t& metaParts,
                              unsigned long headerSize) {
    cache_->Update(storageId_, version, extent_, updatedParts, metaParts, headerSize);
}

}  // namespace cloudbackuplib::backup::cache
