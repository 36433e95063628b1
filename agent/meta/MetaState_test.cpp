#include "agent/meta/MetaState.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <limits>

#include "agent/meta/MetaTestKit.h"

namespace agent {
namespace {

using namespace test_kit;
using testing::ElementsAre;

CMetaState StateOf(SMetaChanges changes) {
    CMetaState state;
    state.Apply(std::move(changes));
    return state;
}

std::vector<std::string> PathsAt(const CMetaState& state, std::string_view path) {
    std::vector<std::string> paths;
    for (const auto& [entryPath, packed] : state.EntriesAt(path)) {
        paths.emplace_back(entryPath);
    }
    return paths;
}

std::string CheckFailure(const SMetaChanges& changes) {
    return FailureOf([&] { (void)StateOf(changes).Check(); });
}

TEST(PathOrder, IsTheOrderOfAWalk) {
    const SPathLess less;
    EXPECT_TRUE(less("", "a"));
    EXPECT_TRUE(less("a", "a/b"));
    EXPECT_TRUE(less("a/b", "a-b"));
    EXPECT_TRUE(less("a/b", "a\1"));
    EXPECT_TRUE(less("a/z/z", "a0"));
    EXPECT_TRUE(less("a", "\xff"));
    EXPECT_FALSE(less("a", "a"));
    EXPECT_FALSE(less("a-b", "a/b"));
}

RC_GTEST_PROP(PathOrderProperty, ComparesElementByElement, ()) {
    const auto path = rc::gen::container<std::string>(rc::gen::element('/', 'a', 'b', '-', '\x01', '\xff'));
    const auto elements = [](const std::string& text) {
        std::vector<std::vector<unsigned char>> parts(1);
        for (const char c : text) {
            if (c == '/') {
                parts.emplace_back();
            } else {
                parts.back().push_back(static_cast<unsigned char>(c));
            }
        }
        return parts;
    };
    const std::string a = *path;
    const std::string b = *path;
    RC_ASSERT(SPathLess()(a, b) == (a.empty() != b.empty() ? a.empty() : elements(a) < elements(b)));
}

TEST(MetaState, FindsEntriesAndWhatLiesUnderThem) {
    SMetaChanges changes;
    for (const std::string path : {"", "a", "a/x", "a/x/y"}) {
        changes.Put(path, MakeFolder());
    }
    for (const std::string path : {"a-b", "a\1", "ab", "a/x-"}) {
        changes.Put(path, MakeFile(0, 0));
    }
    const CMetaState state = StateOf(std::move(changes));
    EXPECT_THAT(PathsAt(state, ""), ElementsAre("", "a", "a/x", "a/x/y", "a/x-", "a\1", "a-b", "ab"));
    EXPECT_THAT(PathsAt(state, "a"), ElementsAre("a", "a/x", "a/x/y", "a/x-"));
    EXPECT_THAT(PathsAt(state, "a/x"), ElementsAre("a/x", "a/x/y"));
    EXPECT_THAT(PathsAt(state, "ab"), ElementsAre("ab"));
    EXPECT_THAT(PathsAt(state, "b"), ElementsAre());
    EXPECT_THAT(PathsAt(state, "a/x/y/z"), ElementsAre());
    EXPECT_EQ(state.Find("a/x"), MakeFolder());
    EXPECT_EQ(state.Find("a/"), std::nullopt);
}

TEST(MetaState, FindsTheChunksOfARange) {
    CMetaState state;
    state.AddBlock(MakeBlock(1));
    for (const std::uint64_t offset : {0U, 100U, 300U}) {  // a gap from 200 to 300
        state.AddChunk(MakeChunk(offset, 100));
    }
    const auto offsets = [&](std::uint64_t offset, std::uint64_t length) {
        std::vector<std::uint64_t> found;
        for (const auto& chunk : state.FindChunks(offset, length)) {
            found.push_back(chunk.streamOffset);
        }
        return found;
    };
    EXPECT_THAT(offsets(0, 100), ElementsAre(0));
    EXPECT_THAT(offsets(99, 1), ElementsAre(0));
    EXPECT_THAT(offsets(99, 2), ElementsAre(0, 100));
    EXPECT_THAT(offsets(100, 1), ElementsAre(100));
    EXPECT_THAT(offsets(200, 100), ElementsAre());
    EXPECT_THAT(offsets(0, 400), ElementsAre(0, 100, 300));
    EXPECT_THAT(offsets(1, std::numeric_limits<std::uint64_t>::max()), ElementsAre(0, 100, 300));
    EXPECT_THAT(offsets(400, 1), ElementsAre());
    EXPECT_THAT(offsets(50, 0), ElementsAre());
}

TEST(MetaState, TellsWhatIsNeeded) {
    SMetaChanges changes = SmallChanges();
    changes.blocks.push_back(MakeBlock(2));
    changes.blocks.push_back(MakeBlock(3));
    changes.chunks.push_back(MakeChunk(150, 50, 2));
    changes.chunks.push_back(MakeChunk(200, 50, 1));
    changes.chunks.push_back(MakeChunk(250, 50, 1));
    changes.Put("other", MakeFile(160, 10));
    changes.Put("span", MakeFile(50, 100));
    CMetaState state = StateOf(changes);
    const SMetaUsage usage = state.Check();
    EXPECT_EQ(usage.chunks, (std::vector<bool>{true, true, true, false, false}));
    EXPECT_EQ(usage.blocks, (std::vector<bool>{true, false, true}));
    EXPECT_EQ(usage.chunkCount, 3U);
    EXPECT_EQ(usage.blockCount, 2U);
    EXPECT_THAT(state.GetUsedBlocks(), ElementsAre(MakeBlock(1), MakeBlock(3)));

    state.Compact(usage);
    EXPECT_THAT(state.GetBlocks(), ElementsAre(MakeBlock(1), MakeBlock(3)));
    ASSERT_EQ(state.GetChunks().size(), 3U);
    SChunk moved = MakeChunk(150, 50, 1);
    EXPECT_EQ(state.GetChunks()[2], moved);
    EXPECT_EQ(state.GetStreamEnd(), 300U);
    EXPECT_EQ(state.Check().chunks, (std::vector<bool>{true, true, true}));
}

TEST(MetaState, ChangesReplaceAndRemove) {
    CMetaState state = StateOf(SmallChanges());
    SMetaChanges changes;
    changes.removed = {"docs/link", "docs"};
    changes.Put("docs", MakeFile(0, 100));
    changes.Put("new", MakeFolder());
    state.Apply(std::move(changes));
    EXPECT_THAT(PathsAt(state, ""), ElementsAre("", "docs", "file", "new"));
    EXPECT_EQ(state.Find("docs"), MakeFile(0, 100));

    SMetaChanges gone;
    gone.removed = {"nowhere"};
    EXPECT_EQ(FailureOf([&] { state.Apply(std::move(gone)); }), "entry 'nowhere' is removed and not there");
}

TEST(MetaState, NewChunksBeginAtTheStreamsEnd) {
    CMetaState state = StateOf(SmallChanges());
    state.SetStreamEnd(1000);
    SMetaChanges changes;
    changes.chunks = {MakeChunk(999, 10)};
    EXPECT_EQ(FailureOf([&] { state.Apply(std::move(changes)); }),
              "a new chunk begins at 999, before the stream's end at 1000");
    EXPECT_EQ(FailureOf([&] { state.SetStreamEnd(999); }),
              "the stream cannot end at 999 with a chunk that ends at 1000");
    EXPECT_EQ(FailureOf([&] { state.SetStreamEnd(std::uint64_t{1} << 63); }),
              "the stream cannot end at 9223372036854775808 with a chunk that ends at 1000");
}

TEST(MetaState, RefusesChunksThatDoNotFit) {
    CMetaState state;
    state.AddBlock(MakeBlock(1, 1000));
    state.AddChunk(MakeChunk(100, 100));
    const auto refusal = [&](const SChunk& chunk) { return FailureOf([&] { state.AddChunk(chunk); }); };
    EXPECT_EQ(refusal(MakeChunk(199, 10)), "chunks overlap or are out of order at stream offset 199");
    EXPECT_EQ(refusal(MakeChunk(0, 10)), "chunks overlap or are out of order at stream offset 0");
    EXPECT_EQ(refusal(MakeChunk(std::numeric_limits<std::int64_t>::max(), 10)),
              "a chunk at stream offset 9223372036854775807 is beyond all bounds");
    EXPECT_EQ(refusal(MakeChunk(200, 10, 1)), "the chunk at stream offset 200: the table of blocks has only 1");
    EXPECT_EQ(refusal(MakeChunk(200, 10, 0, 991)),
              "the chunk at stream offset 200: it ends at byte 1001 of a block of 1000 bytes");
    EXPECT_THAT(refusal(MakeChunk(200, 0)), testing::HasSubstr("its plain size 0 is not between 1 and"));
    SChunk chunk = MakeChunk(200, 10);
    chunk.codec = EChunkCodec{2};
    EXPECT_EQ(refusal(chunk), "the chunk at stream offset 200: its codec 2 is not known");
    chunk.codec = EChunkCodec::plain;
    chunk.storedSize = 9;
    EXPECT_THAT(refusal(chunk), testing::HasSubstr("it is stored plain, yet in 9 bytes instead of 10"));
    EXPECT_NO_THROW(state.AddChunk(MakeChunk(200, 10, 0, 990)));
}

TEST(MetaState, EveryEntryLiesInAFolder) {
    SMetaChanges changes;
    changes.Put("a", MakeFolder());
    EXPECT_EQ(CheckFailure(changes), "entry 'a': no folder holds it");
    changes.Put("", MakeFile(0, 0));
    EXPECT_EQ(CheckFailure(changes), "entry 'a': no folder holds it");
    changes.Put("", MakeFolder());
    EXPECT_NO_THROW((void)StateOf(changes).Check());
    changes.Put("a/b/c", MakeFile(0, 0));
    EXPECT_EQ(CheckFailure(changes), "entry 'a/b/c': no folder holds it");
    changes.Put("a/b", MakeLink(EEntryType::symlink, "/etc"));
    EXPECT_EQ(CheckFailure(changes), "entry 'a/b/c': no folder holds it");
}

TEST(MetaState, ASingleFileCanBeTheRoot) {
    SMetaChanges changes;
    changes.Put("", MakeFile(0, 0));
    EXPECT_NO_THROW((void)StateOf(changes).Check());
    EXPECT_NO_THROW((void)CMetaState().Check());
}

TEST(MetaState, HardLinksNameAFileBeforeThem) {
    const auto check = [](const std::string& link, const std::string& target) {
        SMetaChanges changes;
        changes.Put("", MakeFolder());
        changes.Put("d", MakeFolder());
        changes.Put("d/file", MakeFile(0, 0));
        changes.Put("first", MakeLink(EEntryType::hardLink, "d/file"));
        changes.Put(link, MakeLink(EEntryType::hardLink, target));
        (void)StateOf(changes).Check();
    };
    EXPECT_NO_THROW(check("d-x", "d/file"));
    const auto refusal = [&](const std::string& link, const std::string& target) {
        return FailureOf([&] { check(link, target); });
    };
    EXPECT_EQ(refusal("x", "nowhere"),
              "entry 'x': it is another name of 'nowhere', which is no file that stands before it");
    EXPECT_THAT(refusal("x", "d"), testing::HasSubstr("is another name of 'd'"));
    EXPECT_THAT(refusal("x", "first"), testing::HasSubstr("is another name of 'first'"));
    EXPECT_THAT(refusal("x", "x"), testing::HasSubstr("is another name of 'x'"));
    EXPECT_THAT(refusal("d/a", "d/file"), testing::HasSubstr("is another name of 'd/file'"));
}

TEST(MetaState, SegmentsAreCoveredByChunks) {
    const auto refusal = [](std::uint64_t offset, std::uint64_t length) {
        SMetaChanges changes;
        changes.blocks = {MakeBlock(1)};
        changes.chunks = {MakeChunk(10, 100), MakeChunk(110, 100), MakeChunk(300, 100)};
        changes.Put("", MakeFile(offset, length));
        return FailureOf([&] { (void)StateOf(changes).Check(); });
    };
    const auto text = [](const std::string& length, const std::string& offset) {
        return "entry '': a segment of " + length + " bytes at stream offset " + offset + " is not covered by chunks";
    };
    EXPECT_EQ(refusal(9, 10), text("10", "9"));
    EXPECT_EQ(refusal(10, 201), text("201", "10"));
    EXPECT_EQ(refusal(210, 1), text("1", "210"));
    EXPECT_EQ(refusal(200, 110), text("110", "200"));
    EXPECT_EQ(refusal(400, 1), text("1", "400"));
    EXPECT_EQ(refusal(~std::uint64_t{0}, 2), text("2", "18446744073709551615"));
    EXPECT_EQ(refusal(20, std::numeric_limits<std::int64_t>::max()), text("9223372036854775807", "20"));
}

TEST(MetaState, ManyLongSegmentsAreCheckedQuickly) {
    // Each of the files spans all of the chunks: a check that walked along them would take 4,000,000,000 steps.
    SMetaChanges changes;
    changes.blocks = {MakeBlock(1)};
    for (std::uint64_t i = 0; i < 100'000; ++i) {
        changes.chunks.push_back(MakeChunk(i, 1));
    }
    changes.Put("", MakeFolder());
    for (int i = 0; i < 40'000; ++i) {
        changes.Put(std::to_string(i), MakeFile(0, 100'000));
    }
    EXPECT_EQ(StateOf(std::move(changes)).Check().chunkCount, 100'000U);
}

}  // namespace
}  // namespace agent
