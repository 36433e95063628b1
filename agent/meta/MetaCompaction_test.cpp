#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "agent/meta/MetaFile.h"
#include "agent/meta/MetaLimits.h"
#include "agent/meta/MetaTestKit.h"
#include "tests/support/TempDir.h"

/// When a file is written anew, and what then stays. And files of many banks.
namespace agent {
namespace {

using namespace test_kit;

class MetaCompaction : public testing::Test {
protected:
    SMetaLayout Write(SMetaChanges changes) {
        std::optional<std::string> old = Path();
        ++version_;
        return WriteMeta({version_ == 1 ? std::nullopt : old, Path(), storageId, version_}, state_, std::move(changes));
    }
    std::string Path() const { return dir_ / std::to_string(version_); }

    /// As many empty files in the root.
    static SMetaChanges Files(int count) {
        SMetaChanges changes;
        changes.Put("", MakeFolder());
        for (int i = 0; i < count; ++i) {
            changes.Put(std::to_string(i), MakeFile(0, 0));
        }
        return changes;
    }

    test::TempDir dir_;
    CMetaState state_;
    std::uint64_t version_ = 0;
};

TEST_F(MetaCompaction, DeadRecordsThatOutweighLiveOnesAreLeftOut) {
    Write(Files(3000));
    // 2999 dead; then as many and one more than live ones.
    EXPECT_FALSE(Write(Files(2998)).isRewritten);
    EXPECT_EQ(ReadMetaHeader(Path()).deadRecords, 2999U);
    SMetaChanges changes;
    changes.Put("0", MakeFile(0, 0));
    changes.Put("1", MakeFile(0, 0));
    EXPECT_FALSE(Write(changes).isRewritten);
    EXPECT_EQ(ReadMetaHeader(Path()).deadRecords, 3001U);
    // More dead than live, but few of them.
    EXPECT_FALSE(Write(Files(1095 - 1)).isRewritten);
    EXPECT_EQ(ReadMetaHeader(Path()).deadRecords, 4096U);

    changes.Put("new", MakeFile(0, 0));
    const SMetaLayout layout = Write(changes);
    EXPECT_TRUE(layout.isRewritten);
    ASSERT_EQ(layout.banks.size(), 1U);
    EXPECT_TRUE(layout.banks[0].isNew);
    const SMeta meta = ReadMeta(Path());
    EXPECT_EQ(meta.header.deadRecords, 0U);
    EXPECT_EQ(meta.header.entries, 3002U);
    EXPECT_EQ(meta.header.previousVersion, version_ - 1);
    EXPECT_EQ(meta.state, state_);
}

TEST_F(MetaCompaction, ManyDeadRecordsAreCarriedWhileMoreAreLive) {
    Write(Files(6000));
    EXPECT_FALSE(Write(Files(6000)).isRewritten);  // 6001 of each
    EXPECT_EQ(ReadMetaHeader(Path()).deadRecords, 6001U);
    SMetaChanges one;
    one.Put("0", MakeFile(0, 0));
    EXPECT_TRUE(Write(one).isRewritten);
}

TEST_F(MetaCompaction, KeepsWhatEntriesNeed) {
    SMetaChanges changes = Files(0);
    changes.blocks = {MakeBlock(1), MakeBlock(2), MakeBlock(3)};
    changes.chunks = {MakeChunk(0, 100, 0), MakeChunk(100, 100, 1), MakeChunk(200, 100, 2, 50)};
    for (int i = 0; i < 3; ++i) {
        changes.Put("file" + std::to_string(i), MakeFile(static_cast<std::uint64_t>(i) * 100, 100));
    }
    Write(changes);
    SMetaChanges removal;
    removal.removed = {"file1"};
    EXPECT_FALSE(Write(removal).isRewritten);
    // Blocks stay where they are until the file is written anew.
    EXPECT_EQ(state_.GetBlocks().size(), 3U);
    EXPECT_THAT(state_.GetUsedBlocks(), testing::ElementsAre(MakeBlock(1), MakeBlock(3)));

    Write(Files(5000));
    EXPECT_FALSE(Write(Files(5000)).isRewritten);
    EXPECT_TRUE(Write(Files(1)).isRewritten);
    const SMeta meta = ReadMeta(Path());
    EXPECT_EQ(meta.state, state_);
    EXPECT_THAT(meta.state.GetBlocks(), testing::ElementsAre(MakeBlock(1), MakeBlock(3)));
    EXPECT_THAT(meta.state.GetChunks(), testing::ElementsAre(MakeChunk(0, 100, 0), MakeChunk(200, 100, 1, 50)));
    EXPECT_EQ(meta.state.Find("file2"), MakeFile(200, 100));
    EXPECT_EQ(meta.header.streamEnd, 300U);

    // The stream goes on where it ended, the table where it ends now.
    SMetaChanges more;
    more.blocks = {MakeBlock(4)};
    more.chunks = {MakeChunk(300, 10, 2)};
    more.Put("more", MakeFile(290, 20));
    EXPECT_FALSE(Write(more).isRewritten);
    EXPECT_EQ(ReadMeta(Path()).state, state_);
}

TEST_F(MetaCompaction, TheStreamsEndOutlivesItsLastChunk) {
    Write(SmallChanges());
    SMetaChanges removal;
    removal.removed = {"file"};
    Write(removal);
    Write(Files(5000));
    EXPECT_TRUE(Write(Files(5000)).isRewritten);
    EXPECT_EQ(ReadMeta(Path()).state.GetStreamEnd(), 150U);
    EXPECT_TRUE(ReadMeta(Path()).state.GetChunks().empty());
    EXPECT_TRUE(ReadMeta(Path()).state.GetBlocks().empty());
}

TEST_F(MetaCompaction, AFullTableMakesOneBankOfAll) {
    Write(SmallChanges());
    for (std::uint64_t i = 1; i < meta::maxBanks; ++i) {
        SMetaChanges changes;
        changes.Put("file" + std::to_string(i), MakeFile(0, 100));
        const SMetaLayout layout = Write(changes);
        ASSERT_FALSE(layout.isRewritten) << i;
        ASSERT_EQ(layout.banks.size(), i + 1);
        ASSERT_TRUE(layout.banks.back().isNew);
        ASSERT_FALSE(layout.banks[i - 1].isNew);
    }
    EXPECT_EQ(ReadMeta(Path()).state, state_);
    EXPECT_FALSE(Write({}).isRewritten);  // nothing changed: nothing to put in

    SMetaChanges changes;
    changes.Put("last", MakeFile(0, 100));
    const SMetaLayout layout = Write(changes);
    EXPECT_TRUE(layout.isRewritten);
    EXPECT_EQ(layout.banks.size(), 1U);
    const SMeta meta = ReadMeta(Path());
    EXPECT_EQ(meta.state, state_);
    EXPECT_EQ(meta.header.entries, 4 + meta::maxBanks);
    EXPECT_EQ(util::fs_file_size(Path()), meta.header.GetFileSize());
}

/// An entry of about a mebibyte that does not compress.
SEntry LargeEntry(std::uint32_t seed) {
    std::mt19937_64 random(seed);
    std::string value;
    while (value.size() < 1U << 20U) {
        const std::uint64_t word = random();
        value.append(reinterpret_cast<const char*>(&word), sizeof word);
    }
    SEntry entry = MakeFolder();
    entry.xattrs = {{"user.large", value}};
    return entry;
}

TEST_F(MetaCompaction, ABankEndsAtItsLimit) {
    SMetaChanges changes = Files(0);
    for (std::uint32_t i = 0; i < 40; ++i) {
        changes.Put("d" + std::to_string(100 + i), LargeEntry(i));
    }
    const SMetaLayout layout = Write(changes);
    ASSERT_EQ(layout.banks.size(), 3U);
    const SMeta meta = ReadMeta(Path());
    EXPECT_EQ(meta.state, state_);
    for (const auto& bank : meta.header.banks) {
        EXPECT_LE(bank.plainSize, 16U << 20U);
    }
    EXPECT_GT(meta.header.banks[0].plainSize, 15U << 20U);

    SMetaChanges more;
    for (std::uint32_t i = 0; i < 20; ++i) {
        more.Put("e" + std::to_string(100 + i), LargeEntry(i));
    }
    const SMetaLayout appended = Write(more);
    ASSERT_EQ(appended.banks.size(), 5U);
    EXPECT_EQ(MakePartsMaps(appended).updatedParts.size(), 2U);
    EXPECT_EQ(ReadMeta(Path()).state, state_);
}

TEST_F(MetaCompaction, ARecordLargerThanTheLimitGetsABankOfItsOwn) {
    SMetaChanges changes = Files(3);
    SEntry entry = MakeFolder();
    entry.xattrs = {{"user.huge", std::string(20U << 20U, 'x')}};
    changes.Put("2", entry);
    const SMetaLayout layout = Write(changes);
    EXPECT_EQ(layout.banks.size(), 2U);
    const SMeta meta = ReadMeta(Path());
    EXPECT_EQ(meta.state, state_);
    // It compresses further than a reader believes, so it is stored as it is.
    EXPECT_EQ(meta.header.banks[1].codec, EBankCodec::plain);
}

TEST(MetaLimits, TheLimitDoublesAsTheTableFills) {
    constexpr std::uint64_t mebi = 1U << 20U;
    EXPECT_EQ(meta::BankLimit(0), 16 * mebi);
    EXPECT_EQ(meta::BankLimit(15), 16 * mebi);
    EXPECT_EQ(meta::BankLimit(16), 32 * mebi);
    EXPECT_EQ(meta::BankLimit(95), 512 * mebi);
    EXPECT_EQ(meta::BankLimit(96), 1024 * mebi);
    EXPECT_EQ(meta::BankLimit(119), 1024 * mebi);
}

}  // namespace
}  // namespace agent
