#include "common/optional.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace {

TEST(OptionalParameter, AbsentAtFirst) {
    const COptionalParameter<int> value;
    EXPECT_FALSE(value.IsSet());
    try {
        (void)value.Get();
        FAIL() << "nothing thrown";
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_STREQ("Parameter is not available.", failure.what());
    }
}

TEST(OptionalParameter, GivesWhatWasSet) {
    COptionalParameter<std::string> value("first");
    EXPECT_TRUE(value.IsSet());
    EXPECT_EQ("first", value.Get());
    value.Set("second");
    EXPECT_EQ("second", value.Get());
    value.Reset();
    EXPECT_FALSE(value.IsSet());
    EXPECT_THROW((void)value.Get(), exc::CRuntimeExc);
}

TEST(OptionalParameter, AnEmptyValueIsAValue) {
    const COptionalParameter<std::string> value{std::string()};
    EXPECT_TRUE(value.IsSet());
    EXPECT_EQ("", value.Get());
    const COptionalParameter<std::shared_ptr<int>> null{std::shared_ptr<int>()};
    EXPECT_TRUE(null.IsSet());
}

TEST(OptionalParameter, Compares) {
    using param_t = COptionalParameter<int>;
    EXPECT_EQ(param_t(), param_t());
    EXPECT_EQ(param_t(1), param_t(1));
    EXPECT_NE(param_t(1), param_t(2));
    EXPECT_NE(param_t(0), param_t());
}

TEST(OptionalParameter, HoldsWhatCannotBeCompared) {
    COptionalParameter<std::weak_ptr<int>> value;
    {
        const auto owner = std::make_shared<int>(1);
        value.Set(owner);
        EXPECT_EQ(owner, value.Get().lock());
    }
    EXPECT_TRUE(value.IsSet());
    EXPECT_EQ(nullptr, value.Get().lock());
}

}  // namespace
