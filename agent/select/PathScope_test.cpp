#include "agent/select/PathScope.h"

#include <gtest/gtest.h>

namespace {

using agent::CleanPath;
using agent::FullPath;
using agent::PathInRoot;

TEST(PathScope, JoinsRootAndPath) {
    EXPECT_EQ(FullPath("/srv", "a/b"), "/srv/a/b");
    EXPECT_EQ(FullPath("/srv", ""), "/srv");
    EXPECT_EQ(FullPath("/", "a"), "/a");
    EXPECT_EQ(FullPath("/", ""), "/");
}

TEST(PathScope, CleansSlashes) {
    EXPECT_EQ(CleanPath("/srv//a/"), "/srv/a");
    EXPECT_EQ(CleanPath("//"), "/");
    EXPECT_EQ(CleanPath(""), "");
    EXPECT_EQ(CleanPath("a"), "a");
}

TEST(PathScope, FindsWhatOfARootIsWanted) {
    EXPECT_EQ(PathInRoot("/srv", ""), "");
    EXPECT_EQ(PathInRoot("/srv", "/"), "");
    EXPECT_EQ(PathInRoot("/srv", "/srv"), "");
    EXPECT_EQ(PathInRoot("/srv/data", "/srv"), "");
    EXPECT_EQ(PathInRoot("/srv", "/srv/a/b"), "a/b");
    EXPECT_EQ(PathInRoot("/", "/srv/a"), "srv/a");
    EXPECT_EQ(PathInRoot("/", "/"), "");
}

TEST(PathScope, ANameThatOnlyBeginsAlikeIsAnother) {
    EXPECT_EQ(PathInRoot("/srv", "/srv2"), std::nullopt);
    EXPECT_EQ(PathInRoot("/srv2", "/srv"), std::nullopt);
    EXPECT_EQ(PathInRoot("/srv", "srv"), std::nullopt);
}

}  // namespace
