#include "common/exc.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace {

using exc::ChainText;
using exc::CNotImplExc;
using exc::CRuntimeExc;
using exc::FindCause;
using exc::RegenTraceExc;

/// What `raise` throws, as text.
template <class F>
std::string WhatOf(const F& raise) {
    try {
        raise();
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return "(nothing thrown)";
}

/// Throws the failure that `raise` throws, as the cause of a new one.
template <class F, class... Args>
[[noreturn]] void Wrap(const F& raise, std::string_view message, const Args&... args) {
    try {
        raise();
    } catch (const std::exception& cause) {
        RegenTraceExc(cause, message, args...);
    }
    throw std::logic_error("nothing to wrap");
}

class CSpecialExc : public exc::CExc {
public:
    explicit CSpecialExc(int code) : CExc("special"), code_(code) {}
    int GetCode() const { return code_; }
    std::unique_ptr<CExc> Clone() const override { return std::make_unique<CSpecialExc>(*this); }
    void Generate() const override { throw CSpecialExc(*this); }

private:
    int code_;
};

TEST(Exc, AMessageIsFilledWithItsArguments) {
    const CRuntimeExc failure("Failed to save checkpoint '%1' for cloud backup '%2'", 7, "photos");
    EXPECT_STREQ("Failed to save checkpoint '7' for cloud backup 'photos'", failure.what());
    EXPECT_EQ("Failed to save checkpoint '7' for cloud backup 'photos'", failure.GetMessage());
    EXPECT_FALSE(failure.HasCauseText());
}

TEST(Exc, AMessageWithoutArgumentsStaysAsItStands) { EXPECT_STREQ("%1 of %2", CRuntimeExc("%1 of %2").what()); }

TEST(Exc, ANotImplementedOperationIsNamedByItsSignature) {
    EXPECT_STREQ("void C::F(int)", CNotImplExc("void C::F(int)").what());
}

TEST(Exc, RegenTraceGivesTheWholeChainInOneLine) {
    const auto inner = [] { throw CRuntimeExc("innermost %1", 3); };
    const auto middle = [&] { Wrap(inner, "inner %1", 2); };
    try {
        Wrap(middle, "outer %1", 1);
    } catch (const CRuntimeExc& failure) {
        EXPECT_STREQ("outer 1: inner 2: innermost 3", failure.what());
        EXPECT_EQ("outer 1", failure.GetMessage());
        EXPECT_TRUE(failure.HasCauseText());
        return;
    }
    FAIL() << "nothing thrown";
}

TEST(Exc, ACausesOwnPlaceholdersAreNotFilled) {
    EXPECT_EQ("lost x: %1 and %2", WhatOf([] { Wrap([] { throw std::runtime_error("%1 and %2"); }, "lost %1", "x"); }));
}

TEST(Exc, TheCauseStaysNestedWithItsType) {
    try {
        Wrap([] { Wrap([] { throw CSpecialExc(42); }, "inner"); }, "outer");
    } catch (const std::exception& failure) {
        const auto cause = FindCause<CSpecialExc>(failure);
        ASSERT_TRUE(cause.has_value());
        EXPECT_EQ(42, cause->GetCode());
        EXPECT_FALSE(FindCause<CNotImplExc>(failure).has_value());
        EXPECT_EQ("outer", FindCause<CRuntimeExc>(failure)->GetMessage()) << "the outermost comes first";
    }
}

TEST(Exc, FindCauseTakesTheExceptionItself) {
    const CSpecialExc failure(5);
    EXPECT_EQ(5, FindCause<CSpecialExc>(failure)->GetCode());
}

TEST(Exc, FindCauseEndsAtSomethingThatIsNoException) {
    try {
        try {
            throw 42;
        } catch (...) {
            std::throw_with_nested(CRuntimeExc("outer"));
        }
    } catch (const std::exception& failure) {
        EXPECT_FALSE(FindCause<CSpecialExc>(failure).has_value());
        EXPECT_EQ("outer: unknown error", ChainText(failure));
    }
}

TEST(Exc, ChainTextFollowsTheStandardsNesting) {
    try {
        try {
            try {
                throw std::logic_error("c");
            } catch (...) {
                std::throw_with_nested(std::runtime_error("b"));
            }
        } catch (...) {
            std::throw_with_nested(std::runtime_error("a"));
        }
    } catch (const std::exception& failure) {
        EXPECT_STREQ("a", failure.what());
        EXPECT_EQ("a: b: c", ChainText(failure));
    }
}

TEST(Exc, ChainTextFollowsAnOwnExceptionThatWasNestedByHand) {
    try {
        try {
            throw std::logic_error("cause");
        } catch (...) {
            std::throw_with_nested(CSpecialExc(1));
        }
    } catch (const std::exception& failure) {
        EXPECT_EQ("special: cause", ChainText(failure));
    }
}

TEST(Exc, RegenTraceTakesInTheStandardsNesting) {
    const auto nested = [] {
        try {
            throw std::logic_error("c");
        } catch (...) {
            std::throw_with_nested(std::runtime_error("b"));
        }
    };
    EXPECT_EQ("a: b: c", WhatOf([&] { Wrap(nested, "a"); }));
}

TEST(Exc, RegenTraceOutsideOfAHandlerKeepsTheText) {
    try {
        RegenTraceExc(std::runtime_error("cause"), "outer");
    } catch (const std::exception& failure) {
        EXPECT_STREQ("outer: cause", failure.what());
        EXPECT_FALSE(FindCause<CSpecialExc>(failure).has_value());
    }
}

TEST(Exc, WithCauseKeepsTheText) {
    const auto failure = CRuntimeExc::WithCause("outer %1", std::runtime_error("inner"));
    EXPECT_STREQ("outer %1: inner", failure.what());
    EXPECT_EQ("outer %1", failure.GetMessage());
}

TEST(Exc, ACauseWithoutATextAddsNothing) {
    EXPECT_STREQ("outer", CRuntimeExc::WithCause("outer", std::runtime_error("")).what());
}

TEST(Exc, ANulByteDoesNotHideWhatStandsBehindIt) {
    const std::string path("a\0b", 3);
    const CRuntimeExc failure("Cannot open '%1'", path);
    EXPECT_STREQ("Cannot open 'a\\0b'", failure.what());
    EXPECT_EQ("Cannot open '" + path + "'", failure.GetMessage());
    EXPECT_EQ("outer: Cannot open 'a\\0b'", WhatOf([&] { Wrap([&] { failure.Generate(); }, "outer"); }));
}

TEST(Exc, CloneKeepsTypeAndTextsWithoutTheNestedCause) {
    try {
        Wrap([] { throw CSpecialExc(1); }, "outer");
    } catch (const exc::CExc& failure) {
        const std::unique_ptr<exc::CExc> clone = failure.Clone();
        EXPECT_EQ(typeid(CRuntimeExc), typeid(*clone));
        EXPECT_STREQ("outer: special", clone->what());
        EXPECT_EQ("outer", clone->GetMessage());
        EXPECT_FALSE(FindCause<CSpecialExc>(*clone).has_value());
    }
}

TEST(Exc, GenerateThrowsTheSameType) {
    EXPECT_THROW(CRuntimeExc("x").Generate(), CRuntimeExc);
    EXPECT_THROW(CNotImplExc("x").Generate(), CNotImplExc);
    const std::unique_ptr<exc::CExc> clone = CNotImplExc("sig").Clone();
    EXPECT_THROW(clone->Generate(), CNotImplExc);
    EXPECT_EQ("sig", WhatOf([&] { clone->Generate(); }));
}

TEST(Exc, CopiesAndMovesLeaveBothWithTheirTexts) {
    static_assert(std::is_nothrow_move_constructible_v<CRuntimeExc>);
    CRuntimeExc first("first");
    CRuntimeExc second(std::move(first));
    EXPECT_STREQ("first", first.what());  // NOLINT: what a moved one keeps is what is tested
    EXPECT_STREQ("first", second.what());
    CRuntimeExc third("third");
    third = std::move(second);
    EXPECT_STREQ("first", second.what());  // NOLINT
    EXPECT_STREQ("first", third.what());
    const CRuntimeExc& self = third;
    third = self;
    EXPECT_STREQ("first", third.what());
}

TEST(Exc, RethrowCauseReturnsWhenThereIsNone) {
    exc::RethrowCause(std::runtime_error("plain"));
    try {
        std::throw_with_nested(std::runtime_error("nested in nothing"));
    } catch (const std::exception& failure) {
        // Here a handler is active, but the nesting was made before: it holds nothing.
        exc::RethrowCause(failure);
        EXPECT_EQ("nested in nothing", ChainText(failure));
    }
}

}  // namespace
