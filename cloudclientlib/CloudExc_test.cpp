#include "cloudclientlib/CloudExc.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <type_traits>

namespace {

using cloudclientlib::CCloudExc;
using cloudclientlib::CObjectNotFoundExc;
using cloudclientlib::EFailure;
using cloudclientlib::SFailure;

const SFailure busy{EFailure::transient, true, "UploadFile", "a/b", "the store is busy"};

TEST(CloudExc, SaysWhatFailedAndWhy) {
    const CCloudExc failure(busy);
    EXPECT_STREQ("UploadFile 'a/b': the store is busy", failure.what());
    EXPECT_EQ(EFailure::transient, failure.GetKind());
    EXPECT_TRUE(failure.IsRetryable());
    EXPECT_EQ("UploadFile", failure.GetOperation());
    EXPECT_EQ("a/b", failure.GetPath());
}

TEST(CloudExc, ACauseStandsBehindTheMessage) {
    const CCloudExc failure(busy, std::runtime_error("timeout"));
    EXPECT_STREQ("UploadFile 'a/b': the store is busy: timeout", failure.what());
    EXPECT_EQ("UploadFile 'a/b': the store is busy", failure.GetMessage());
}

TEST(CloudExc, APathsOwnPlaceholdersAreNotFilled) {
    EXPECT_STREQ("Get '%3': %1", CCloudExc({EFailure::other, false, "Get", "%3", "%1"}).what());
}

TEST(CloudExc, UnknownUntilTold) {
    const SFailure none;
    EXPECT_EQ(EFailure::other, none.kind);
    EXPECT_FALSE(none.retryable);
}

TEST(CloudExc, TellsHowLongTheServiceAsksToWait) {
    EXPECT_EQ(std::chrono::milliseconds(0), CCloudExc(busy).GetRetryAfter());
    SFailure slow = busy;
    slow.retryAfter = std::chrono::seconds(7);
    EXPECT_EQ(std::chrono::milliseconds(7000), CCloudExc(slow).GetRetryAfter());
    EXPECT_EQ(std::chrono::milliseconds(7000), CCloudExc(slow).WithRemark("(again)").GetRetryAfter());
}

TEST(CloudExc, ARemarkStandsBehindTheReason) {
    const CCloudExc failure = CCloudExc(busy).WithRemark("(after 3 attempts)");
    EXPECT_STREQ("UploadFile 'a/b': the store is busy (after 3 attempts)", failure.what());
    EXPECT_FALSE(failure.HasCauseText());
    EXPECT_EQ(EFailure::transient, failure.GetKind());
    EXPECT_TRUE(failure.IsRetryable());
    EXPECT_EQ("UploadFile", failure.GetOperation());
    EXPECT_EQ("a/b", failure.GetPath());
}

TEST(CloudExc, ARemarkStandsBeforeTheCause) {
    SFailure withNul = busy;
    withNul.path = std::string("a\0b", 3);
    const CCloudExc failure =
        CCloudExc(withNul, std::runtime_error("timeout")).WithRemark("(again)").WithRemark("(%1)");
    EXPECT_STREQ("UploadFile 'a\\0b': the store is busy (again) (%1): timeout", failure.what());
    EXPECT_EQ(std::string("UploadFile 'a\0b': the store is busy (again) (%1)", 48), failure.GetMessage());
}

TEST(CloudExc, NotFoundIsAClassOfItsOwn) {
    const CObjectNotFoundExc failure("DownloadFile", "x");
    EXPECT_STREQ("DownloadFile 'x': object not found", failure.what());
    EXPECT_EQ(EFailure::notFound, failure.GetKind());
    EXPECT_FALSE(failure.IsRetryable());
    EXPECT_EQ("DownloadFile", failure.GetOperation());
    EXPECT_EQ("x", failure.GetPath());
}

TEST(CloudExc, CloneAndGenerateKeepTypeAndRecord) {
    const auto clone = CObjectNotFoundExc("op", "p").Clone();
    EXPECT_EQ(typeid(CObjectNotFoundExc), typeid(*clone));
    EXPECT_THROW(clone->Generate(), CObjectNotFoundExc);
    const auto other = CCloudExc(busy, std::runtime_error("timeout")).Clone();
    try {
        other->Generate();
    } catch (const CCloudExc& failure) {
        EXPECT_EQ(typeid(CCloudExc), typeid(failure));
        EXPECT_STREQ("UploadFile 'a/b': the store is busy: timeout", failure.what());
        EXPECT_EQ("a/b", failure.GetPath());
    }
}

TEST(CloudExc, IsFoundInAChainByItsClass) {
    try {
        try {
            try {
                throw CObjectNotFoundExc("DownloadFile", "x");
            } catch (const std::exception& cause) {
                exc::RegenTraceExc(cause, "inner");
            }
        } catch (const std::exception& cause) {
            exc::RegenTraceExc(cause, "outer");
        }
    } catch (const std::exception& failure) {
        EXPECT_STREQ("outer: inner: DownloadFile 'x': object not found", failure.what());
        ASSERT_TRUE(exc::FindCause<CObjectNotFoundExc>(failure).has_value());
        EXPECT_EQ("x", exc::FindCause<CObjectNotFoundExc>(failure)->GetPath());
        EXPECT_EQ(EFailure::notFound, exc::FindCause<CCloudExc>(failure)->GetKind());
    }
}

TEST(CloudExc, CopyingDoesNotThrow) {
    static_assert(std::is_nothrow_move_constructible_v<CCloudExc>);
    CCloudExc first(busy);
    const CCloudExc second(std::move(first));
    EXPECT_EQ("a/b", second.GetPath());
}

TEST(CloudExc, KindsHaveNames) {
    EXPECT_EQ("not found", ToStr(EFailure::notFound));
    EXPECT_EQ("access denied", ToStr(EFailure::accessDenied));
    EXPECT_EQ("quota", ToStr(EFailure::quota));
    EXPECT_EQ("conflict", ToStr(EFailure::conflict));
    EXPECT_EQ("transient", ToStr(EFailure::transient));
    EXPECT_EQ("corrupt", ToStr(EFailure::corrupt));
    EXPECT_EQ("other", ToStr(EFailure::other));
}

}  // namespace
