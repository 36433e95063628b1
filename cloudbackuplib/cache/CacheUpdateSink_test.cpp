#include "cloudbackuplib/CacheUpdateSink.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "common/exc.h"
#include "tests/support/MemoryExtent.h"
#include "tests/support/SizedPart.h"
#include "tests/support/TempDir.h"

namespace cloudbackuplib::backup::cache {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

const guid::guid_t sinkStorage = guid::guid_t::FromStr("0a000000-0000-4000-8000-000000000001");

class CacheUpdateSink : public testing::Test {
protected:
    CacheUpdateSink() { std::ofstream(file_) << "file"; }

    std::unique_ptr<IMetaUpdateSink> MakeSink() {
        return std::make_unique<CCacheUpdateSink>(sinkStorage, cache_, extent_, 0UL);
    }
    std::string LoadAll() {
        const CCacheLock lock(cache_);
        const auto bytes = cache_->Load(sinkStorage);
        return {bytes->begin(), bytes->end()};
    }

    test::TempDir folder_;
    const std::string file_ = folder_ / "metadata";
    const std::shared_ptr<CStgMetaCache> cache_ = std::make_shared<CStgMetaCache>();
    std::shared_ptr<test::MemoryExtent> extent_ = std::make_shared<test::MemoryExtent>("extent");
};

TEST_F(CacheUpdateSink, AnUnknownStorageGetsNoSink) {
    try {
        const auto sink = MakeSink();
        FAIL() << "no exception";
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_EQ(std::string(failure.what()), "Storage '" + sinkStorage.ToAStr() + "' not found in cache");
    }
    EXPECT_EQ(extent_.use_count(), 1);
}

TEST_F(CacheUpdateSink, ANewSinkMakesTheStorageCountAsChanged) {
    cache_->Put(sinkStorage, file_, 4);
    const auto sink = MakeSink();
    EXPECT_THAT(cache_->EnumUpdates(), ElementsAre(Pair(sinkStorage, 4UL)));
    EXPECT_EQ(LoadAll(), "extent");
    const auto descriptor = cache_->GetMetadataDescriptor(sinkStorage);
    EXPECT_THAT(descriptor.UpdatedParts, IsEmpty());
    EXPECT_THAT(descriptor.MetaParts, IsEmpty());
    EXPECT_EQ(descriptor.HeaderSize, 0U);
}

TEST_F(CacheUpdateSink, TheLastArgumentIsNotUsed) {
    cache_->Put(sinkStorage, file_, 4);
    const CCacheUpdateSink sink(sinkStorage, cache_, extent_, ~0UL);
    EXPECT_THAT(cache_->EnumUpdates(), ElementsAre(Pair(sinkStorage, 4UL)));
    EXPECT_EQ(cache_->GetMetadataDescriptor(sinkStorage).HeaderSize, 0U);
}

TEST_F(CacheUpdateSink, AnotherSinkOfTheStorageKeepsWhatWasReported) {
    cache_->Put(sinkStorage, file_, 4);
    const auto first = MakeSink();
    first->Update(5, {{8, test::SizedPart(1)}}, {{8, test::SizedPart(1)}}, 8);
    const auto second = MakeSink();
    EXPECT_THAT(cache_->EnumUpdates(), ElementsAre(Pair(sinkStorage, 5UL)));
    const auto descriptor = cache_->GetMetadataDescriptor(sinkStorage);
    EXPECT_THAT(descriptor.UpdatedParts, ElementsAre(Pair(8UL, test::SizedPart(1))));
    EXPECT_EQ(descriptor.HeaderSize, 0U) << "a registration reports a header of 0 bytes";
}

TEST_F(CacheUpdateSink, ReportsGoToTheCache) {
    cache_->Put(sinkStorage, file_, 4);
    const auto sink = MakeSink();
    sink->Update(5, {{8, test::SizedPart(1)}}, {{8, test::SizedPart(1)}, {16, test::SizedPart(2)}}, 8);
    EXPECT_THAT(cache_->EnumUpdates(), ElementsAre(Pair(sinkStorage, 5UL)));
    auto descriptor = cache_->GetMetadataDescriptor(sinkStorage);
    EXPECT_THAT(descriptor.UpdatedParts, ElementsAre(Pair(8UL, test::SizedPart(1))));
    EXPECT_THAT(descriptor.MetaParts, ElementsAre(Pair(8UL, test::SizedPart(1)), Pair(16UL, test::SizedPart(2))));
    EXPECT_EQ(descriptor.HeaderSize, 8U);
    sink->Update(6, {}, {}, 0);
    descriptor = cache_->GetMetadataDescriptor(sinkStorage);
    EXPECT_EQ(descriptor.HeaderSize, 0U) << "a later report of 0 replaces the size";
}

TEST_F(CacheUpdateSink, TheSinkKeepsTheExtentAliveAndTheCacheDoesNot) {
    cache_->Put(sinkStorage, file_, 4);
    auto sink = MakeSink();
    const std::weak_ptr<test::MemoryExtent> extent = extent_;
    extent_.reset();
    EXPECT_EQ(LoadAll(), "extent");
    sink.reset();
    EXPECT_TRUE(extent.expired());
    EXPECT_THAT(cache_->EnumUpdates(), ElementsAre(Pair(sinkStorage, 4UL))) << "the record stays as it was";
    EXPECT_EQ(LoadAll(), "file");
}

TEST_F(CacheUpdateSink, AReportDuringACheckpointIsRefusedAndNotTaken) {
    cache_->Put(sinkStorage, file_, 4);
    const auto sink = MakeSink();
    {
        const CCacheLock lock(cache_);
        try {
            sink->Update(5, {{8, test::SizedPart(1)}}, {}, 8);
            FAIL() << "no exception";
        } catch (const exc::CRuntimeExc& failure) {
            EXPECT_STREQ(failure.what(), "Storage cache is suspended for checkpoint");
        }
        EXPECT_THROW((void)MakeSink(), exc::CRuntimeExc);
    }
    EXPECT_THAT(cache_->EnumUpdates(), ElementsAre(Pair(sinkStorage, 4UL)));
    sink->Update(5, {}, {}, 8);
    EXPECT_THAT(cache_->EnumUpdates(), ElementsAre(Pair(sinkStorage, 5UL)));
}

TEST_F(CacheUpdateSink, AReportOfARemovedStorageIsRefused) {
    cache_->Put(sinkStorage, file_, 4);
    const auto sink = MakeSink();
    cache_->Pop(sinkStorage);
    try {
        sink->Update(5, {}, {}, 8);
        FAIL() << "no exception";
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_EQ(std::string(failure.what()),
                  "Cannot update storage '" + sinkStorage.ToAStr() + "': cache record not found");
    }
}

}  // namespace
}  // namespace cloudbackuplib::backup::cache
