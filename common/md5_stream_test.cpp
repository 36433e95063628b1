#include "common/md5_stream.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>

namespace {

using digest::CMd5;
using digest::Md5;

TEST(Md5Stream, StartsAnewAfterFinish) {
    CMd5 md5;
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", md5.Finish().ToAStr());
    md5.Update(std::string_view("abc"));
    EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", md5.Finish().ToAStr());
    EXPECT_EQ("d41d8cd98f00b204e9800998ecf8427e", md5.Finish().ToAStr());
}

TEST(Md5Stream, IsTheSameHoweverTheDataIsCut) {
    std::string data;
    for (int i = 0; i < 1000; ++i) {
        data += static_cast<char>(i * 7);
    }
    for (const std::size_t piece : {1U, 63U, 64U, 65U, 1000U}) {
        CMd5 md5;
        for (std::size_t i = 0; i < data.size(); i += piece) {
            md5.Update(std::string_view(data).substr(i, piece));
            md5.Update({});
        }
        EXPECT_EQ(Md5(data), md5.Finish()) << piece;
    }
}

TEST(Md5Stream, MovesWithItsState) {
    CMd5 first;
    first.Update(std::string_view("ab"));
    CMd5 second(std::move(first));
    second.Update(std::string_view("c"));
    EXPECT_EQ(Md5(std::string_view("abc")), second.Finish());
}

}  // namespace
