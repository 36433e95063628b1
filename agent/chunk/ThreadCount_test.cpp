#include "agent/chunk/ThreadCount.h"

#include <gtest/gtest.h>

namespace agent {
namespace {

TEST(ThreadCount, IsWhatIsWantedOrWhatTheMachineHas) {
    EXPECT_EQ(ThreadCount(3), 3U);
    EXPECT_EQ(ThreadCount(40), 40U);
    EXPECT_GE(ThreadCount(0), 1U);
    EXPECT_LE(ThreadCount(0), 16U);
}

}  // namespace
}  // namespace agent
