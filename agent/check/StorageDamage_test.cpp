#include "agent/check/StorageDamage.h"

#include <gtest/gtest.h>

namespace {

using agent::CMetaState;
using agent::CPackedEntry;
using agent::CStorageDamage;
using agent::EEntryType;
using agent::SEntry;

constexpr agent::block_name_t firstBlock{1};
constexpr agent::block_name_t secondBlock{2};

SEntry Entry(EEntryType type) {
    SEntry entry;
    entry.type = type;
    return entry;
}

SEntry File(std::uint64_t streamOffset, std::uint64_t length) {
    SEntry file = Entry(EEntryType::file);
    file.size = length;
    file.segments = {{0, streamOffset, length}};
    return file;
}

/// Two blocks, each with two chunks of 10 bytes; "b" is another name of "a".
CMetaState MakeState() {
    CMetaState state;
    for (const auto& name : {firstBlock, secondBlock}) {
        agent::SBlockExternalId block;
        block.id = name;
        block.number32 = 20;
        state.AddBlock(block);
    }
    for (std::uint32_t i = 0; i < 4; ++i) {
        agent::SChunk chunk;
        chunk.streamOffset = 10 * i;
        chunk.plainSize = chunk.storedSize = 10;
        chunk.block = i / 2;
        chunk.blockOffset = 10 * (i % 2);
        state.AddChunk(chunk);
    }
    SEntry link = Entry(EEntryType::hardLink);
    link.target = "a";
    state.PutEntry("", CPackedEntry(Entry(EEntryType::directory)));
    state.PutEntry("a", CPackedEntry(File(5, 10)));
    state.PutEntry("b", CPackedEntry(link));
    state.PutEntry("c", CPackedEntry(File(15, 10)));
    state.PutEntry("d", CPackedEntry(File(30, 10)));
    state.PutEntry("e", CPackedEntry(Entry(EEntryType::file)));
    (void)state.Check();
    return state;
}

std::string LostFiles(const CStorageDamage& damage) {
    std::string text;
    for (const auto& file : FindLostFiles(MakeState(), damage)) {
        text += file.path;
        for (const auto& block : file.blocks) {
            text += std::to_string(block[0]);
        }
    }
    return text;
}

TEST(StorageDamage, NothingLost) { EXPECT_EQ(LostFiles({}), ""); }

TEST(StorageDamage, ABlockTakesTheFilesThatNeedItWithTheirOtherNames) {
    CStorageDamage damage;
    damage.AddBlock(firstBlock);
    EXPECT_EQ(LostFiles(damage), "a1b1c1");
    damage.AddBlock(secondBlock);
    EXPECT_EQ(LostFiles(damage), "a1b1c12d2");
}

TEST(StorageDamage, AChunkTakesOnlyItsOwn) {
    CStorageDamage damage;
    damage.AddChunk(firstBlock, 10);
    EXPECT_EQ(LostFiles(damage), "a1b1c1");
    damage = {};
    damage.AddChunk(firstBlock, 0);
    EXPECT_EQ(LostFiles(damage), "a1b1");
    damage = {};
    damage.AddChunk(secondBlock, 0);
    EXPECT_EQ(LostFiles(damage), "c2");
    damage = {};
    damage.AddChunk(secondBlock, 11);  // no chunk begins there
    EXPECT_EQ(LostFiles(damage), "");
}

TEST(StorageDamage, ABlockThatIsWholeAgainIsNoDamage) {
    CStorageDamage damage;
    damage.AddBlock(firstBlock);
    damage.AddChunk(firstBlock, 10);
    damage.AddChunk(secondBlock, 0);
    damage.RemoveBlock(firstBlock);
    EXPECT_FALSE(damage.IsLost(firstBlock, 0));
    EXPECT_FALSE(damage.IsLost(firstBlock, 10));
    EXPECT_TRUE(damage.IsLost(secondBlock, 0));
    damage.RemoveBlock(secondBlock);
    EXPECT_TRUE(damage.IsEmpty());
}

}  // namespace
