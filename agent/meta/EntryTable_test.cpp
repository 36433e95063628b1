#include "agent/meta/EntryTable.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "agent/model/PathOrder.h"

namespace agent {
namespace {

using model_t = std::map<std::string, std::string, SPathLess>;

CPackedView View(std::string_view bytes) { return CPackedView::FromBytes(bytes); }

model_t ModelOf(const CEntryTable& table) {
    model_t model;
    for (const auto& [path, entry] : table) {
        // At the end, or it was not in order.
        model.emplace_hint(model.end(), path, entry.GetBytes());
    }
    return model;
}

std::vector<std::string> PathsOf(const CEntryTable& table) {
    std::vector<std::string> paths;
    for (const auto& [path, entry] : table) {
        paths.emplace_back(path);
    }
    return paths;
}

TEST(EntryTable, IsEmptyAtFirst) {
    CEntryTable table;
    EXPECT_TRUE(table.empty());
    EXPECT_EQ(table.begin(), table.end());
    EXPECT_TRUE(table.Find("").IsNull());
    EXPECT_EQ(table.LowerBound(""), table.end());
    EXPECT_FALSE(table.Erase("a"));
    table.PutAll({});
    EXPECT_TRUE(table.empty());
    EXPECT_EQ(table, CEntryTable());
}

TEST(EntryTable, KeepsTheOrderOfAWalk) {
    CEntryTable table;
    for (const char* path : {"a-b", "", "a/b", "b", "a", "a/b/c"}) {
        table.Put(path, View(path));
    }
    EXPECT_THAT(PathsOf(table), testing::ElementsAre("", "a", "a/b", "a/b/c", "a-b", "b"));
    EXPECT_EQ((*table.LowerBound("a/c")).GetPath(), "a-b");
    EXPECT_EQ(table.Find("a/b").GetEntry(), View("a/b"));
    EXPECT_EQ(table.size(), 6U);
}

TEST(EntryTable, PuttingAgainReplaces) {
    CEntryTable table;
    table.Put("a", View("one"));
    table.Put("b", View("two"));
    table.Put("a", View("three, which is longer"));
    EXPECT_EQ(ModelOf(table), (model_t{{"a", "three, which is longer"}, {"b", "two"}}));
    EXPECT_EQ(table.size(), 2U);
}

TEST(EntryTable, RecordsStayWhereTheyAre) {
    CEntryTable table;
    table.Put("m", View("the one"));
    const CEntryRef entry = table.Find("m");
    const void* const id = entry.GetId();
    for (int i = 0; i < 3000; ++i) {
        table.Put("a" + std::to_string(i), View("before"));
        table.Put("z" + std::to_string(i), View("behind"));
    }
    for (int i = 0; i < 3000; i += 2) {
        table.Erase("a" + std::to_string(i));
    }
    EXPECT_EQ(entry.GetEntry(), View("the one"));
    EXPECT_EQ(table.Find("m").GetId(), id);
}

TEST(EntryTable, CopiesAndMovesAreWhole) {
    CEntryTable table;
    for (int i = 0; i < 2000; ++i) {
        table.Put(std::to_string(i), View(std::string(static_cast<std::size_t>(i % 7), 'x')));
    }
    const CEntryTable copy = table;
    EXPECT_EQ(copy, table);
    CEntryTable moved = std::move(table);
    EXPECT_EQ(copy, moved);
    EXPECT_TRUE(table.empty());  // NOLINT: what is promised of a moved one
    moved.Put("5", View("another"));
    EXPECT_NE(copy, moved);
}

// Few names, so that they meet; many steps, so that runs are divided and emptied.
RC_GTEST_PROP(EntryTable, IsAMap, ()) {
    const auto count = *rc::gen::inRange<std::size_t>(0, 4000);
    const auto names = *rc::gen::inRange<int>(1, 3000);
    const auto seed = *rc::gen::arbitrary<std::uint32_t>();
    std::uint32_t state = seed;
    const auto next = [&](int limit) {
        state = state * 1664525U + 1013904223U;
        return static_cast<int>((state >> 8U) % static_cast<std::uint32_t>(limit));
    };
    CEntryTable table;
    CEntryTable other;
    model_t model;
    model_t otherModel;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string path = "d" + std::to_string(next(3)) + "/" + std::to_string(next(names));
        const std::string bytes = std::to_string(i);
        switch (next(4)) {
            case 0:
                RC_ASSERT(table.Erase(path) == (model.erase(path) != 0));
                break;
            case 1:
                other.Put(path, View(bytes));
                otherModel[path] = bytes;
                break;
            default:
                table.Put(path, View(bytes));
                model[path] = bytes;
        }
        const auto place = table.LowerBound(path);
        const auto expected = model.lower_bound(path);
        RC_ASSERT((place == table.end()) == (expected == model.end()));
        if (expected != model.end()) {
            RC_ASSERT(place->GetPath() == expected->first);
        }
    }
    RC_ASSERT(ModelOf(table) == model);
    RC_ASSERT(table.size() == model.size());
    table.PutAll(std::move(other));
    for (const auto& [path, bytes] : otherModel) {
        model[path] = bytes;
    }
    RC_ASSERT(ModelOf(table) == model);
    RC_ASSERT(table.size() == model.size());
}

}  // namespace
}  // namespace agent
