#include "cloudclientlib/ObjectPath.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <string>
#include <vector>

#include "cloudclientlib/CloudExc.h"

namespace {

using cloudclientlib::CCloudExc;
using cloudclientlib::NormalizeObjectPath;
using cloudclientlib::SplitObjectPath;

using elements_t = std::vector<std::string>;

TEST(ObjectPath, SlashesBeforeBehindAndRepeatedMeanNothing) {
    for (const char* path : {"a/b", "/a/b", "a/b/", "//a//b/", "///a/b///"}) {
        EXPECT_EQ((elements_t{"a", "b"}), SplitObjectPath("op", path));
        EXPECT_EQ("a/b", NormalizeObjectPath("op", path));
    }
}

TEST(ObjectPath, TheRootHasNoElements) {
    for (const char* path : {"", "/", "///"}) {
        EXPECT_TRUE(SplitObjectPath("op", path).empty());
        EXPECT_EQ("", NormalizeObjectPath("op", path));
    }
}

TEST(ObjectPath, DotsAloneAreRefused) {
    for (const std::string path :
         {".", "..", "a/.", "a/..", "../a", "./a", "a/../b", "a/./b", "/..", "//../", "a//.//b"}) {
        try {
            (void)SplitObjectPath("UploadFile", path);
            ADD_FAILURE() << path;
        } catch (const CCloudExc& failure) {
            EXPECT_EQ("UploadFile '" + path + "': invalid path: element '.' or '..'", failure.what());
            EXPECT_EQ(cloudclientlib::EFailure::other, failure.GetKind());
            EXPECT_FALSE(failure.IsRetryable());
            EXPECT_EQ("UploadFile", failure.GetOperation());
            EXPECT_EQ(path, failure.GetPath());
        }
        EXPECT_THROW((void)NormalizeObjectPath("op", path), CCloudExc);
    }
}

TEST(ObjectPath, OtherNamesOfDotsAreNames) {
    EXPECT_EQ((elements_t{"...", ".a", "a.", "..a", "a..b", " ", "\\", "*", "ü"}),
              SplitObjectPath("op", ".../.a/a./..a/a..b/ /\\/*/ü"));
}

TEST(ObjectPath, ANulIsRefused) {
    for (const std::string& path : {std::string("\0", 1), std::string("a\0b", 3), std::string("a/b\0", 4)}) {
        EXPECT_THROW((void)SplitObjectPath("op", path), CCloudExc);
    }
    try {
        (void)SplitObjectPath("op", std::string("a\0b", 3));
    } catch (const CCloudExc& failure) {
        EXPECT_STREQ("op 'a\\0b': invalid path: NUL byte", failure.what());
        EXPECT_EQ(std::string("a\0b", 3), failure.GetPath());
    }
}

RC_GTEST_PROP(ObjectPath, APlainPathStaysAsItIs, ()) {
    const auto path = *rc::gen::container<std::string>(rc::gen::element('/', '/', '.', 'a', 'b'));
    std::string plain;
    try {
        plain = NormalizeObjectPath("op", path);
    } catch (const CCloudExc&) {
        const std::string framed = "/" + path + "/";
        RC_ASSERT(framed.find("/./") != std::string::npos || framed.find("/../") != std::string::npos);
        return;
    }
    RC_ASSERT(NormalizeObjectPath("op", plain) == plain);
    RC_ASSERT(SplitObjectPath("op", plain) == SplitObjectPath("op", path));
    RC_ASSERT(plain.find("//") == std::string::npos);
    RC_ASSERT(plain.empty() || (plain.front() != '/' && plain.back() != '/'));
}

}  // namespace
