#include <gtest/gtest.h>

#include "agent/meta/AllocationMeter.h"
#include "agent/meta/MetaFile.h"
#include "agent/meta/MetaTestKit.h"
#include "agent/meta/SyntheticTree.h"
#include "tests/support/TempDir.h"

namespace agent {
namespace {

using namespace test_kit;

constexpr std::uint64_t count = 50'000;

TEST(MetaSize, FiftyThousandEntries) {
    const test::TempDir dir;
    CMetaState state;
    WriteMeta({std::nullopt, dir / "1", storageId, 1}, state, SyntheticTree(count));
    const std::uint64_t size = util::fs_file_size(dir / "1");

    const AllocationMeter meter;
    const SMeta meta = ReadMeta(dir / "1");
    const std::size_t held = meter.GetHeld();
    RecordProperty("bytes", std::to_string(size));
    RecordProperty("held", std::to_string(held));
    RecordProperty("peak", std::to_string(meter.GetPeak()));
    std::cout << size << " bytes, " << held << " held, " << meter.GetPeak() << " at most\n";
    EXPECT_GE(meta.state.GetEntries().size(), count);
    EXPECT_EQ(meta.state, state);
    EXPECT_LT(size, 7'000'000U);
    EXPECT_LT(held, 20'000'000U);
    EXPECT_LT(meter.GetPeak(), 40'000'000U);
}

TEST(MetaSize, ASmallChangeUploadsLittle) {
    const test::TempDir dir;
    CMetaState state;
    WriteMeta({std::nullopt, dir / "1", storageId, 1}, state, SyntheticTree(count));
    SMetaChanges changes;
    for (int i = 0; i < 10; ++i) {
        changes.Put("new" + std::to_string(i), MakeFile(0, 1000));
    }
    const SMetaLayout layout = WriteMeta({dir / "1", dir / "2", storageId, 2}, state, changes);
    ASSERT_EQ(MakePartsMaps(layout).updatedParts.size(), 1U);
    EXPECT_LT(MakePartsMaps(layout).updatedParts.begin()->second.Size, 500U);
}

}  // namespace
}  // namespace agent
