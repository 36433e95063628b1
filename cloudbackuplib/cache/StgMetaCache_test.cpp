#include "cloudbackuplib/StgMetaCache.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "common/exc.h"
#include "tests/support/MemoryExtent.h"
#include "tests/support/SizedPart.h"

namespace cloudbackuplib::backup::cache {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

const guid::guid_t storageA = guid::guid_t::FromStr("0a000000-0000-4000-8000-000000000001");
const guid::guid_t storageB = guid::guid_t::FromStr("0b000000-0000-4000-8000-000000000002");

std::string MessageOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const exc::CRuntimeExc& failure) {
        return failure.what();
    }
    return "no exception";
}

TEST(StgMetaCache, PutIsFoundWithPathAndVersion) {
    CStgMetaCache cache;
    cache.Put(storageA, "/local/a", 7);
    std::string path;
    unsigned long version = 0;
    EXPECT_TRUE(cache.Find(storageA, path, version));
    EXPECT_EQ(path, "/local/a");
    EXPECT_EQ(version, 7U);
}

TEST(StgMetaCache, FindOfAnUnknownStorageLeavesTheOutputsAlone) {
    CStgMetaCache cache;
    cache.Put(storageA, "/local/a", 7);
    std::string path = "before";
    unsigned long version = 99;
    EXPECT_FALSE(cache.Find(storageB, path, version));
    EXPECT_EQ(path, "before");
    EXPECT_EQ(version, 99U);
}

TEST(StgMetaCache, PopRemovesARecordAndForgivesAnAbsentOne) {
    CStgMetaCache cache;
    cache.Put(storageA, "/local/a", 1);
    cache.Pop(storageB);
    cache.Pop(storageA);
    cache.Pop(storageA);
    std::string path;
    unsigned long version = 0;
    EXPECT_FALSE(cache.Find(storageA, path, version));
}

TEST(StgMetaCache, PutResetsExtentPartsAndHeaderSizeOfAnExistingRecord) {
    CStgMetaCache cache;
    const auto extent = std::make_shared<test::MemoryExtent>("bytes");
    cache.Put(storageA, "/local/a", 1);
    cache.Update(storageA, 2, extent, {{4, test::SizedPart(1)}}, {{4, test::SizedPart(1)}}, 4);
    cache.Put(storageA, "/local/b", 3);
    EXPECT_THAT(cache.EnumUpdates(), IsEmpty());
    const auto descriptor = cache.GetMetadataDescriptor(storageA);
    EXPECT_THAT(descriptor.UpdatedParts, IsEmpty());
    EXPECT_THAT(descriptor.MetaParts, IsEmpty());
    EXPECT_EQ(descriptor.HeaderSize, 0U);
    EXPECT_THAT(cache.GetReportedLayout(storageA).MetaParts, IsEmpty());
}

TEST(StgMetaCache, OnlyUpdatedStoragesAreEnumerated) {
    CStgMetaCache cache;
    cache.Put(storageA, "/local/a", 1);
    cache.Put(storageB, "/local/b", 1);
    EXPECT_THAT(cache.EnumUpdates(), IsEmpty());
    cache.Update(storageB, 5, std::make_shared<test::MemoryExtent>(), {}, {}, 0);
    EXPECT_THAT(cache.EnumUpdates(), ElementsAre(Pair(storageB, 5UL)));
    cache.Update(storageA, 6, nullptr, {}, {}, 0);
    EXPECT_THAT(cache.EnumUpdates(), ElementsAre(Pair(storageA, 6UL), Pair(storageB, 5UL)));
}

TEST(StgMetaCache, TheFirstReportOfAPartIsKeptAndTheLastHeaderSize) {
    CStgMetaCache cache;
    const auto data = std::make_shared<cnt::array_t<char>>(3, 'd');
    SMetaLocationDescr first = test::SizedPart(3, true);
    first.Data.Set(data);
    cache.Put(storageA, "/local/a", 1);
    cache.Update(storageA, 2, nullptr, {{8, first}}, {{8, first}, {16, test::SizedPart(4)}}, 8);
    cache.Update(storageA, 3, nullptr, {{8, test::SizedPart(5)}, {24, test::SizedPart(1)}},
                 {{8, test::SizedPart(5)}, {24, test::SizedPart(1, true)}}, 0);
    const auto descriptor = cache.GetMetadataDescriptor(storageA);
    EXPECT_THAT(descriptor.UpdatedParts, ElementsAre(Pair(8UL, first), Pair(24UL, test::SizedPart(1))));
    EXPECT_THAT(descriptor.MetaParts,
                ElementsAre(Pair(8UL, first), Pair(16UL, test::SizedPart(4)), Pair(24UL, test::SizedPart(1, true))));
    EXPECT_EQ(descriptor.UpdatedParts.at(8).Data.Get(), data) << "the buffer is shared, not copied";
    EXPECT_EQ(descriptor.HeaderSize, 0U);
}

TEST(StgMetaCache, TheLastReportedLayoutIsKeptBesideTheMergedOne) {
    CStgMetaCache cache;
    cache.Put(storageA, "/local/a", 1);
    cache.Update(storageA, 2, nullptr, {}, {{0, test::SizedPart(8)}, {8, test::SizedPart(3)}, {16, test::SizedPart(4)}},
                 8);
    EXPECT_FALSE(cache.GetReportedLayout(storageA).Resized);
    cache.Update(storageA, 3, nullptr, {}, {{0, test::SizedPart(9)}, {8, test::SizedPart(3)}}, 9);
    auto reported = cache.GetReportedLayout(storageA);
    EXPECT_THAT(reported.MetaParts, ElementsAre(Pair(0UL, test::SizedPart(9)), Pair(8UL, test::SizedPart(3))));
    EXPECT_EQ(reported.HeaderSize, 9U);
    EXPECT_FALSE(reported.Resized) << "the header's size is no part's";
    cache.Update(storageA, 4, nullptr, {}, {{8, test::SizedPart(5)}}, 8);
    EXPECT_TRUE(cache.GetReportedLayout(storageA).Resized);
    cache.Update(storageA, 5, nullptr, {}, {{8, test::SizedPart(3)}}, 8);
    EXPECT_TRUE(cache.GetReportedLayout(storageA).Resized) << "it has been resized in between";
    cache.Update(storageA, 5, nullptr, {}, {}, 0);
    reported = cache.GetReportedLayout(storageA);
    EXPECT_THAT(reported.MetaParts, ElementsAre(Pair(8UL, test::SizedPart(3)))) << "a registration reports no layout";
    EXPECT_EQ(reported.HeaderSize, 8U);
}

TEST(StgMetaCache, UnknownStoragesAreRefusedWithTheirId) {
    CStgMetaCache cache;
    parts_map_t parts;
    const std::string id = storageA.ToAStr();
    EXPECT_EQ(MessageOf([&] { cache.Update(storageA, 1, nullptr, {}, {}, 0); }),
              "Cannot update storage '" + id + "': cache record not found");
    EXPECT_EQ(MessageOf([&] { (void)cache.GetMetadataDescriptor(storageA); }),
              "Cannot get metadata descriptor for storage '" + id + "': cache record not found");
    EXPECT_EQ(MessageOf([&] { (void)cache.GetReportedLayout(storageA); }),
              "Cannot get metadata layout for storage '" + id + "': cache record not found");
    cache.SuspendForCheckpoint();
    EXPECT_EQ(MessageOf([&] { (void)cache.Load(storageA); }),
              "Cannot load metadata for storage '" + id + "': cache record not found");
    EXPECT_EQ(MessageOf([&] { cache.LoadParts(storageA, parts); }),
              "Cannot load metadata for storage '" + id + "': cache record not found");
}

TEST(StgMetaCache, NormalModeRefusesReadingAndResuming) {
    CStgMetaCache cache;
    parts_map_t parts;
    cache.Put(storageA, "/local/a", 1);
    const std::string refusal = "Storage cache is not suspended";
    EXPECT_EQ(MessageOf([&] { (void)cache.Load(storageA); }), refusal);
    EXPECT_EQ(MessageOf([&] { cache.LoadParts(storageA, parts); }), refusal);
    EXPECT_EQ(MessageOf([&] { cache.Resume(false); }), refusal);
    EXPECT_EQ(MessageOf([&] { cache.Resume(true); }), refusal);
    EXPECT_EQ(MessageOf([&] { cache.CheckSuspended(); }), refusal);
    EXPECT_NO_THROW(cache.CheckNotSuspended());
}

TEST(StgMetaCache, SuspendedModeRefusesChangesAndStaysAsItWas) {
    CStgMetaCache cache;
    cache.Put(storageA, "/local/a", 1);
    cache.Update(storageA, 2, nullptr, {{8, test::SizedPart(1)}}, {}, 8);
    cache.SuspendForCheckpoint();
    const std::string refusal = "Storage cache is suspended for checkpoint";
    EXPECT_EQ(MessageOf([&] { cache.Put(storageA, "/local/b", 9); }), refusal);
    EXPECT_EQ(MessageOf([&] { cache.Pop(storageA); }), refusal);
    EXPECT_EQ(MessageOf([&] { cache.Update(storageA, 9, nullptr, {{16, test::SizedPart(1)}}, {}, 9); }), refusal);
    EXPECT_EQ(MessageOf([&] { cache.Relocate(storageA, 2, "/local/b", true); }), refusal);
    EXPECT_EQ(MessageOf([&] { cache.SuspendForCheckpoint(); }), refusal);
    EXPECT_EQ(MessageOf([&] { cache.CheckNotSuspended(); }), refusal);
    EXPECT_NO_THROW(cache.CheckSuspended());

    std::string path;
    unsigned long version = 0;
    EXPECT_TRUE(cache.Find(storageA, path, version));
    EXPECT_EQ(path, "/local/a");
    EXPECT_THAT(cache.EnumUpdates(), ElementsAre(Pair(storageA, 2UL)));
    EXPECT_THAT(cache.GetMetadataDescriptor(storageA).UpdatedParts, ElementsAre(Pair(8UL, test::SizedPart(1))));
    EXPECT_EQ(cache.GetMetadataDescriptor(storageA).HeaderSize, 8U);
}

TEST(StgMetaCache, TheModeIsCheckedBeforeTheRecord) {
    CStgMetaCache cache;
    parts_map_t parts;
    EXPECT_EQ(MessageOf([&] { (void)cache.Load(storageA); }), "Storage cache is not suspended");
    EXPECT_EQ(MessageOf([&] { cache.LoadParts(storageA, parts); }), "Storage cache is not suspended");
    cache.SuspendForCheckpoint();
    EXPECT_EQ(MessageOf([&] { cache.Update(storageA, 1, nullptr, {}, {}, 0); }),
              "Storage cache is suspended for checkpoint");
    EXPECT_EQ(MessageOf([&] { cache.Pop(storageA); }), "Storage cache is suspended for checkpoint");
}

TEST(StgMetaCache, EveryModeAnswersQueries) {
    CStgMetaCache cache;
    cache.Put(storageA, "/local/a", 1);
    for (const bool suspended : {false, true}) {
        if (suspended) {
            cache.SuspendForCheckpoint();
        }
        std::string path;
        unsigned long version = 0;
        EXPECT_TRUE(cache.Find(storageA, path, version));
        EXPECT_THAT(cache.EnumUpdates(), IsEmpty());
        EXPECT_EQ(cache.GetMetadataDescriptor(storageA).HeaderSize, 0U);
    }
}

TEST(StgMetaCache, ResumeKeepsTheChangeSetOrStartsAFreshOne) {
    CStgMetaCache cache;
    cache.Put(storageA, "/local/a", 1);
    cache.Update(storageA, 2, nullptr, {{8, test::SizedPart(1)}}, {{8, test::SizedPart(1)}}, 8);
    cache.SuspendForCheckpoint();
    cache.Resume(false);
    EXPECT_THAT(cache.EnumUpdates(), ElementsAre(Pair(storageA, 2UL)));
    cache.SuspendForCheckpoint();
    cache.Resume(true);
    EXPECT_THAT(cache.EnumUpdates(), IsEmpty());
    const auto descriptor = cache.GetMetadataDescriptor(storageA);
    EXPECT_THAT(descriptor.UpdatedParts, ElementsAre(Pair(8UL, test::SizedPart(1))))
        << "only a new Put empties the parts";
    EXPECT_THAT(descriptor.MetaParts, ElementsAre(Pair(8UL, test::SizedPart(1))));
    EXPECT_EQ(descriptor.HeaderSize, 8U);
}

TEST(StgMetaCache, RelocateKeepsTheChangesOrDropsThem) {
    CStgMetaCache cache;
    cache.Put(storageA, "/local/a", 1);
    cache.Update(storageA, 2, std::make_shared<test::MemoryExtent>(), {{8, test::SizedPart(1)}},
                 {{8, test::SizedPart(1)}}, 8);
    EXPECT_TRUE(cache.Relocate(storageA, 2, "/local/b", true));
    std::string path;
    unsigned long version = 0;
    EXPECT_TRUE(cache.Find(storageA, path, version));
    EXPECT_EQ(path, "/local/b");
    EXPECT_THAT(cache.EnumUpdates(), ElementsAre(Pair(storageA, 2UL)));
    EXPECT_THAT(cache.GetMetadataDescriptor(storageA).MetaParts, ElementsAre(Pair(8UL, test::SizedPart(1))));
    EXPECT_THAT(cache.GetMetadataDescriptor(storageA).UpdatedParts, ElementsAre(Pair(8UL, test::SizedPart(1))));
    EXPECT_EQ(cache.GetMetadataDescriptor(storageA).HeaderSize, 8U);
    EXPECT_THAT(cache.GetReportedLayout(storageA).MetaParts, ElementsAre(Pair(8UL, test::SizedPart(1))));

    EXPECT_TRUE(cache.Relocate(storageA, 2, "/local/c", false));
    EXPECT_THAT(cache.EnumUpdates(), IsEmpty());
    EXPECT_THAT(cache.GetMetadataDescriptor(storageA).MetaParts, IsEmpty());
    EXPECT_THAT(cache.GetReportedLayout(storageA).MetaParts, IsEmpty());
}

TEST(StgMetaCache, RelocateRefusesAnotherVersionAndAnUnknownStorage) {
    CStgMetaCache cache;
    cache.Put(storageA, "/local/a", 1);
    EXPECT_FALSE(cache.Relocate(storageA, 2, "/local/b", true));
    EXPECT_FALSE(cache.Relocate(storageB, 1, "/local/b", true));
    std::string path;
    unsigned long version = 0;
    EXPECT_TRUE(cache.Find(storageA, path, version));
    EXPECT_EQ(path, "/local/a");
    EXPECT_THAT(cache.EnumUpdates(), IsEmpty());
}

TEST(StgMetaCache, MetadataSizeIsLimitedALittleBelow4GiB) {
    EXPECT_EQ(CStgMetaCache::CastMetadataSizeExc(0), 0U);
    EXPECT_EQ(CStgMetaCache::CastMetadataSizeExc(4'294'962'176UL), 0xFFFFEC00U);
    EXPECT_EQ(MessageOf([] { CStgMetaCache::CastMetadataSizeExc(4'294'962'177UL); }),
              "Storage metadata size '4294962177' is too large");
    EXPECT_EQ(MessageOf([] { CStgMetaCache::CastMetadataSizeExc(~0UL); }),
              "Storage metadata size '18446744073709551615' is too large");
}

}  // namespace
}  // namespace cloudbackuplib::backup::cache
