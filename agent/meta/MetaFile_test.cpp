#include "agent/meta/MetaFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

#include "agent/meta/FileExtent.h"
#include "agent/meta/MetaAssembly.h"
#include "agent/meta/MetaTestKit.h"
#include "tests/support/TempDir.h"

namespace agent {
namespace {

using namespace test_kit;
using testing::HasSubstr;

class MetaFile : public testing::Test {
protected:
    SMetaTarget First(const std::string& name = "1") { return {std::nullopt, dir_ / name, storageId, 1}; }
    SMetaTarget Next(std::uint64_t version) {
        return {dir_ / std::to_string(version - 1), dir_ / std::to_string(version), storageId, version};
    }

    test::TempDir dir_;
    CMetaState state_;
};

TEST_F(MetaFile, ComesBack) {
    const SMetaLayout layout = WriteMeta(First(), state_, SmallChanges());
    const SMeta meta = ReadMeta(dir_ / "1");
    EXPECT_EQ(meta.state, state_);
    EXPECT_EQ(meta.state.GetOrigin(), meta.header.sha256);
    EXPECT_EQ(state_.GetOrigin(), meta.header.sha256);
    EXPECT_EQ(meta.state.GetBlocks(), SmallChanges().blocks);
    EXPECT_EQ(meta.state.GetChunks(), SmallChanges().chunks);
    EXPECT_EQ(meta.state.GetEntries(), SmallChanges().entries);
    EXPECT_EQ(meta.state.Find("file"), MakeFile(0, 150));

    EXPECT_EQ(ReadMetaHeader(dir_ / "1"), meta.header);
    EXPECT_TRUE(meta.header.storageId == storageId);
    EXPECT_EQ(meta.header.version, 1U);
    EXPECT_EQ(meta.header.previousVersion, 0U);
    EXPECT_EQ(meta.header.streamEnd, 150U);
    EXPECT_EQ(meta.header.entries, 4U);
    EXPECT_EQ(meta.header.chunks, 2U);
    EXPECT_EQ(meta.header.blocks, 1U);
    EXPECT_EQ(meta.header.deadRecords, 0U);

    ASSERT_EQ(meta.header.banks.size(), 1U);
    const SMetaLayout expected{1, 8192, {{8192, meta.header.banks[0].storedSize, true}}, true};
    EXPECT_EQ(layout, expected);
    EXPECT_EQ(util::fs_file_size(dir_ / "1"), 8192 + layout.banks[0].size);
}

TEST_F(MetaFile, AnEmptyStorageHasNoBanks) {
    const SMetaLayout layout = WriteMeta(First(), state_, {});
    EXPECT_EQ(layout, (SMetaLayout{1, 8192, {}, true}));
    EXPECT_EQ(util::fs_file_size(dir_ / "1"), 8192U);
    EXPECT_EQ(ReadMeta(dir_ / "1").state, CMetaState());
    EXPECT_TRUE(IsIntact(dir_ / "1", 1));
    // What comes later is put behind it.
    EXPECT_FALSE(WriteMeta(Next(2), state_, SmallChanges()).isRewritten);
    EXPECT_EQ(ReadMeta(dir_ / "2").state, state_);
}

TEST_F(MetaFile, AppendsWhatChanged) {
    WriteMeta(First(), state_, SmallChanges());
    SMetaChanges changes;
    changes.removed = {"docs/link"};
    changes.blocks = {MakeBlock(2)};
    changes.chunks = {MakeChunk(150, 30, 1)};
    changes.Put("docs/new", MakeFile(140, 40));
    const SMetaLayout layout = WriteMeta(Next(2), state_, changes);

    const SMeta meta = ReadMeta(dir_ / "2");
    EXPECT_EQ(meta.state, state_);
    EXPECT_EQ(meta.header.previousVersion, 1U);
    EXPECT_EQ(meta.header.streamEnd, 180U);
    EXPECT_EQ(meta.header.CountLive(), 9U);
    EXPECT_EQ(meta.header.deadRecords, 2U);  // the link that was put, and its removal
    EXPECT_EQ(meta.state.Find("docs/link"), std::nullopt);
    EXPECT_EQ(meta.state.FindChunks(140, 40).size(), 2U);

    const std::string first = ReadFileBytes(dir_ / "1").substr(8192);
    const std::string second = ReadFileBytes(dir_ / "2").substr(8192);
    EXPECT_EQ(second.substr(0, first.size()), first);
    const SMetaLayout expected{
        2, 8192, {{8192, first.size(), false}, {8192 + first.size(), second.size() - first.size(), true}}, false};
    EXPECT_EQ(layout, expected);
    EXPECT_EQ(ReadMeta(dir_ / "1").header.version, 1U);
}

TEST_F(MetaFile, AnUnchangedRunWritesTheHeaderOnly) {
    WriteMeta(First(), state_, SmallChanges());
    const SMetaLayout layout = WriteMeta(Next(2), state_, {});
    ASSERT_EQ(layout.banks.size(), 1U);
    EXPECT_FALSE(layout.banks[0].isNew);
    EXPECT_EQ(ReadFileBytes(dir_ / "2").substr(8192), ReadFileBytes(dir_ / "1").substr(8192));
    EXPECT_EQ(ReadMeta(dir_ / "2").state, state_);
    EXPECT_EQ(ReadMeta(dir_ / "2").header.version, 2U);
    EXPECT_TRUE(MakePartsMaps(layout).updatedParts.empty());
}

TEST_F(MetaFile, TheSameChangesGiveTheSameBytes) {
    WriteMeta(First(), state_, SmallChanges());
    CMetaState other;
    WriteMeta(First("other"), other, SmallChanges());
    EXPECT_EQ(ReadFileBytes(dir_ / "1"), ReadFileBytes(dir_ / "other"));
}

TEST_F(MetaFile, ChunksThatNothingNeedsAreNotHandedOut) {
    WriteMeta(First(), state_, SmallChanges());
    SMetaChanges changes;
    changes.Put("file", MakeFile(100, 50));
    changes.Put("back", MakeFile(0, 0));
    WriteMeta(Next(2), state_, changes);
    const SMeta meta = ReadMeta(dir_ / "2");
    ASSERT_EQ(meta.state.GetChunks().size(), 1U);
    EXPECT_EQ(meta.state.GetChunks()[0].streamOffset, 100U);
    EXPECT_EQ(meta.state, state_);
    EXPECT_EQ(meta.header.deadRecords, 2U);
    // Its block may be cleared: nothing can refer to it any more.
    SMetaChanges again;
    again.Put("back", MakeFile(0, 10));
    EXPECT_THAT(FailureOf([&] { WriteMeta(Next(3), state_, again); }),
                HasSubstr("entry 'back': a segment of 10 bytes at stream offset 0 is not covered by chunks"));
}

TEST_F(MetaFile, PartsAreBanks) {
    const SMetaLayout layout{9, 8192, {{8192, 100, false}, {8292, 50, true}, {8342, 7, true}}, false};
    const SPartsMaps maps = MakePartsMaps(layout);
    const auto part = [](unsigned long size) {
        cloudbackuplib::backup::SMetaLocationDescr descr;
        descr.Size = size;
        descr.SkipUnlessUpdated = true;
        return descr;
    };
    EXPECT_EQ(maps.metaParts,
              (cloudbackuplib::backup::parts_map_t{{8192, part(100)}, {8292, part(50)}, {8342, part(7)}}));
    EXPECT_EQ(maps.updatedParts, (cloudbackuplib::backup::parts_map_t{{8292, part(50)}, {8342, part(7)}}));
}

TEST_F(MetaFile, RefusesATargetThatDoesNotFit) {
    WriteMeta(First(), state_, SmallChanges());
    const std::string bytes = ReadFileBytes(dir_ / "1");
    const auto refusal = [&](const SMetaTarget& target) { return FailureOf([&] { WriteMeta(target, state_, {}); }); };
    const std::string prefix = "Cannot write metadata file '" + (dir_ / "2") + "': ";
    SMetaTarget target = Next(2);
    target.version = 0;
    EXPECT_EQ(refusal(target), prefix + "version 0 stands for no version");
    target.version = 1;
    EXPECT_EQ(refusal(target), prefix + "version 1 cannot follow version 1");
    target = Next(2);
    target.storageId = guid::guid_t();
    EXPECT_EQ(refusal(target), prefix + "'" + (dir_ / "1") + "' belongs to storage " + storageId.ToAStr() +
                                   ", not 00000000-0000-0000-0000-000000000000");
    target = Next(2);
    target.newPath = dir_ / "./1";
    EXPECT_THAT(refusal(target), HasSubstr("it is the old file"));
    EXPECT_THAT(refusal(Next(3)), HasSubstr("No such file or directory"));
    EXPECT_EQ(ReadFileBytes(dir_ / "1"), bytes);
    EXPECT_THROW(ReadFileBytes(dir_ / "2"), posix::CPosixExc);
    EXPECT_THROW(ReadFileBytes(dir_ / "3"), posix::CPosixExc);
}

TEST_F(MetaFile, RefusesAStateThatIsNotTheOldFiles) {
    WriteMeta(First(), state_, SmallChanges());
    CMetaState other;
    WriteMeta(First("other"), other, {});
    const std::string refusal =
        "Cannot write metadata file '" + (dir_ / "2") + "': the state is not the one of '" + (dir_ / "1") + "'";
    EXPECT_EQ(FailureOf([&] { WriteMeta(Next(2), other, {}); }), refusal);
    CMetaState fresh;
    EXPECT_EQ(FailureOf([&] { WriteMeta(Next(2), fresh, {}); }), refusal);
}

TEST_F(MetaFile, ChangesThatDoNotFitLeaveNoFile) {
    WriteMeta(First(), state_, SmallChanges());
    SMetaChanges changes;
    changes.removed = {"docs"};
    EXPECT_EQ(FailureOf([&] { WriteMeta(Next(2), state_, changes); }),
              "Cannot write metadata file '" + (dir_ / "2") + "': entry 'docs/link': no folder holds it");
    EXPECT_THROW(ReadFileBytes(dir_ / "2"), posix::CPosixExc);
}

TEST_F(MetaFile, ADamagedOldFileIsNotCarriedAlong) {
    WriteMeta(First(), state_, SmallChanges());
    std::string bytes = ReadFileBytes(dir_ / "1");
    bytes.back() = static_cast<char>(bytes.back() ^ 1);
    WriteFileBytes(dir_ / "1", bytes);
    EXPECT_EQ(FailureOf([&] { WriteMeta(Next(2), state_, {}); }),
              "Cannot write metadata file '" + (dir_ / "2") + "': bank at 8192: its bytes are damaged");
    EXPECT_THROW(ReadFileBytes(dir_ / "2"), posix::CPosixExc);
}

/// Files of this process cannot grow beyond the limit while it lives.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t size) : signal_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{size, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, signal_);
    }

private:
    rlimit before_{};
    void (*signal_)(int);
};

TEST_F(MetaFile, ADiskThatTakesNoMoreLeavesNoFile) {
    WriteMeta(First(), state_, SmallChanges());
    SMetaChanges changes;
    changes.Put("new", MakeFile(0, 1));
    std::string failure;
    {
        const FileSizeLimit limit(util::fs_file_size(dir_ / "1") + 1);
        failure = FailureOf([&] { WriteMeta(Next(2), state_, changes); });
    }
    EXPECT_EQ(failure,
              "Cannot write metadata file '" + (dir_ / "2") + "': Cannot write '" + (dir_ / "2") + "': File too large");
    EXPECT_THROW(ReadFileBytes(dir_ / "2"), posix::CPosixExc);
    EXPECT_TRUE(IsIntact(dir_ / "1", 1));
}

TEST_F(MetaFile, ALeftoverUnderTheNewNameIsReplaced) {
    WriteFileBytes(dir_ / "1", std::string(100'000, 'x'));
    WriteMeta(First(), state_, SmallChanges());
    EXPECT_TRUE(IsIntact(dir_ / "1", 1));
}

TEST_F(MetaFile, TellsWhetherItIsIntact) {
    WriteMeta(First(), state_, SmallChanges());
    const std::string bytes = ReadFileBytes(dir_ / "1");
    EXPECT_TRUE(IsIntact(dir_ / "1", 1));
    EXPECT_FALSE(IsIntact(dir_ / "1", 2));
    EXPECT_FALSE(IsIntact(dir_ / "none", 1));
    EXPECT_FALSE(IsIntact(dir_.GetPath(), 1));
    const auto isIntact = [&](const std::string& other) {
        WriteFileBytes(dir_ / "other", other);
        return IsIntact(dir_ / "other", 1);
    };
    EXPECT_TRUE(isIntact(bytes));
    EXPECT_FALSE(isIntact(bytes + '\0'));
    EXPECT_FALSE(isIntact(bytes.substr(0, bytes.size() - 1)));
    for (const std::size_t place : {std::size_t{60}, std::size_t{8191}, std::size_t{8192}, bytes.size() - 1}) {
        std::string damaged = bytes;
        damaged[place] = static_cast<char>(damaged[place] ^ 4);
        EXPECT_FALSE(isIntact(damaged)) << place;
    }
}

TEST_F(MetaFile, AnExtentGoesOnReadingItsFile) {
    WriteMeta(First(), state_, SmallChanges());
    CFileExtent extent(dir_ / "1");
    WriteFileBytes(dir_ / "2", "other");
    util::fs_file_rename(dir_ / "2", dir_ / "1");
    EXPECT_EQ(ReadMeta(extent, "the extent").state, state_);
    std::string bytes(4, '\0');
    EXPECT_EQ(extent.Read(2, bytes.data(), 4), 4U);
    EXPECT_EQ(bytes, "META");
    EXPECT_EQ(extent.Read(extent.GetSize() - 1, bytes.data(), 4), 1U);
    EXPECT_EQ(extent.Read(extent.GetSize() + 5, bytes.data(), 4), 0U);
    EXPECT_THROW(CFileExtent(dir_ / "none"), posix::CPosixExc);
}

TEST_F(MetaFile, FailuresNameTheFile) {
    EXPECT_EQ(FailureOf([&] { (void)ReadMeta(dir_ / "none"); }), "Cannot read metadata file '" + (dir_ / "none") +
                                                                     "': Cannot open '" + (dir_ / "none") +
                                                                     "': No such file or directory");
    WriteFileBytes(dir_ / "text", "hello");
    EXPECT_EQ(FailureOf([&] { (void)ReadMetaHeader(dir_ / "text"); }),
              "Cannot read metadata file '" + (dir_ / "text") + "': it is no metadata file");
}

}  // namespace
}  // namespace agent
