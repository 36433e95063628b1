#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <boost/thread/exceptions.hpp>
#include <cerrno>

#include "cloudbackuplib/StgMetaCache.h"
#include "tests/support/RecordingSink.h"

namespace {

thread_local bool t_locksFail = false;

/// While it lives, this thread gets no mutex.
class FailingLocks {
public:
    FailingLocks() { t_locksFail = true; }
    FailingLocks(const FailingLocks&) = delete;
    FailingLocks& operator=(const FailingLocks&) = delete;
    ~FailingLocks() { t_locksFail = false; }
};

}  // namespace

// Stands before the C library's own for this whole program.
extern "C" __attribute__((visibility("default"))) int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    using lock_t = int (*)(pthread_mutex_t*);
    static std::atomic<lock_t> real{nullptr};
    if (t_locksFail) {
        return EINVAL;
    }
    lock_t lock = real.load();
    if (lock == nullptr) {
        lock = reinterpret_cast<lock_t>(::dlsym(RTLD_NEXT, "pthread_mutex_lock"));
        real.store(lock);
    }
    return lock(mutex);
}

namespace cloudbackuplib::backup::cache {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

const guid::guid_t storage = guid::guid_t::FromStr("0a000000-0000-4000-8000-000000000001");

TEST(CacheLock, SuspendsAndResumesWithTheChangeSetKept) {
    const auto cache = std::make_shared<CStgMetaCache>();
    cache->Put(storage, "/local", 1);
    cache->Update(storage, 2, nullptr, {}, {}, 0);
    {
        const CCacheLock lock(cache);
        EXPECT_NO_THROW(cache->CheckSuspended());
    }
    EXPECT_NO_THROW(cache->CheckNotSuspended());
    EXPECT_THAT(cache->EnumUpdates(), ElementsAre(Pair(storage, 2UL)));
}

TEST(CacheLock, ResumesWhenLeftByAnException) {
    const auto cache = std::make_shared<CStgMetaCache>();
    EXPECT_THROW(
        {
            const CCacheLock lock(cache);
            throw std::runtime_error("checkpoint failed");
        },
        std::runtime_error);
    EXPECT_NO_THROW(cache->CheckNotSuspended());
}

TEST(CacheLock, ASecondLockIsRefusedAndLeavesTheFirstInPlace) {
    const auto cache = std::make_shared<CStgMetaCache>();
    const CCacheLock first(cache);
    EXPECT_THROW(CCacheLock second(cache), exc::CRuntimeExc);
    EXPECT_NO_THROW(cache->CheckSuspended());
}

TEST(CacheLock, ACacheResumedByAnotherIsAWarningNotAnException) {
    const test::RecordingSink log;
    const auto cache = std::make_shared<CStgMetaCache>();
    {
        const CCacheLock lock(cache);
        cache->Resume(false);
    }
    EXPECT_THAT(log.GetTexts(logging::level_t::warn),
                ElementsAre("Cannot resume storage cache: Storage cache is not suspended"));
    EXPECT_NO_THROW(cache->CheckNotSuspended());
}

TEST(CacheLock, AFailureOfTheMutexIsTheLockErrorOfBoost) {
    const auto cache = std::make_shared<CStgMetaCache>();
    cache->Put(storage, "/local", 1);
    std::string text;
    try {
        const FailingLocks failing;
        cache->Pop(storage);
    } catch (const boost::lock_error& failure) {
        text = failure.what();
    }
    EXPECT_THAT(text, testing::StartsWith("boost: mutex lock failed in pthread_mutex_lock"));
    std::string path;
    unsigned long version = 0;
    EXPECT_TRUE(cache->Find(storage, path, version)) << "unchanged";
}

TEST(CacheLock, AFailureOfTheMutexWhileResumingDoesNotEscape) {
    const auto cache = std::make_shared<CStgMetaCache>();
    auto lock = std::make_unique<CCacheLock>(cache);
    {
        const FailingLocks failing;
        EXPECT_NO_THROW(lock.reset());
    }
    EXPECT_NO_THROW(cache->CheckSuspended());
    cache->Resume(false);
}

}  // namespace
}  // namespace cloudbackuplib::backup::cache
