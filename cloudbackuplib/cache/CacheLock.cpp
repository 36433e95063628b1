#include <exception>
#include <utility>

#include "cloudbackuplib/StgMetaCache.h"
#include "common/logging.h"

namespace cloudbackuplib::backup::cache {

namespace {

void ResumeAndLog(CStgMetaCache& cache) noexcept {
    try {
        try {
            cache.Resume(false);
        } catch (const std::exception& failure) {
            logging::Library().Warn("Cannot resume storage cache: %1", failure.what());
        }
    } catch (...) {  // the warning itself failed; a destructor has nobody left to tell
    }
}

}  // namespace

CCacheLock::CCacheLock(std::shared_ptr<CStgMetaCache> cache) : cache_(std::move(cache)) {
    cache_->SuspendForCheckpoint();
    owned_ = true;
}

CCacheLock::~CCacheLock() {
    if (owned_) {
        ResumeAndLog(*cache_);
    }
}

}  // namespace cloudbackuplib::backup::cache
