#include "cloudclientlib/wrappers/RetryClient.h"

#include <gmock/gmock.h>

#include <atomic>

#include "tests/support/RecordingSink.h"
#include "tests/wrappers/RetryFixture.h"

namespace cloudclientlib {

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

const SFailure busy{EFailure::transient, true, "GetFileSize", "object", "busy"};

class CRetryClientTest : public testing::Test {
protected:
    CRetryClientTest() { store->UploadFileAsync("object", Share("0123456789"))->Wait(); }

    /// A client that fails the first `failures` calls, and counts them all.
    std::shared_ptr<ICloudClient> Failing(
        unsigned failures, CScriptedClient::script_t fail = [](const auto&) { throw CCloudExc(busy); }) {
        return std::make_shared<CScriptedClient>(store, [this, failures, fail](const SInterceptedCall& call) {
            if (StoreOperations().contains(call.operation) && ++calls <= failures) {
                fail(call);
            }
        });
    }
    std::string SizeFailure(unsigned failures, SRetryOptions retries) {
        CRetryClient client(Failing(failures), std::move(retries));
        return MessageOf([&] { client.GetFileSize("object"); });
    }

    const std::shared_ptr<clients::CMemoryClient> store = std::make_shared<clients::CMemoryClient>();
    const std::shared_ptr<CFakeTimer> timer = std::make_shared<CFakeTimer>();
    SRetryOptions options = FastRetries(timer);
    std::atomic<unsigned> calls = 0;
};

TEST_F(CRetryClientTest, SuccessIsNotRepeated) {
    CRetryClient client(Failing(0), options);
    EXPECT_EQ(client.GetFileSize("object"), 10U);
    EXPECT_EQ(Read(client, "object"), "0123456789");
    EXPECT_EQ(calls, 2U);
    EXPECT_THAT(timer->GetWaits(), IsEmpty());
}

TEST_F(CRetryClientTest, PausesDoubleUpToTheCap) {
    options.base = 100ms;
    options.cap = 1s;
    EXPECT_EQ(SizeFailure(7, options), "");
    EXPECT_EQ(calls, 8U);
    EXPECT_THAT(timer->GetWaits(), ElementsAre(100ms, 200ms, 400ms, 800ms, 1s, 1s, 1s));
}

TEST_F(CRetryClientTest, PausesAreAShareOfTheMost) {
    options.base = 100ms;
    options.random = [share = 0.0]() mutable { return std::exchange(share, share + 0.25); };
    EXPECT_EQ(SizeFailure(4, options), "");
    EXPECT_THAT(timer->GetWaits(), ElementsAre(0ms, 50ms, 200ms, 600ms));
}

TEST_F(CRetryClientTest, RandomnessOutOfItsRangeIsCutOff) {
    options.base = 100ms;
    options.random = [share = 7.0]() mutable { return std::exchange(share, -7.0); };
    EXPECT_EQ(SizeFailure(2, options), "");
    EXPECT_THAT(timer->GetWaits(), ElementsAre(100ms, 0ms));
}

TEST_F(CRetryClientTest, SystemsRandomnessKeepsTheBounds) {
    options.random = nullptr;
    options.attempts = 200;
    options.base = 1ms;
    options.cap = 64ms;
    EXPECT_EQ(SizeFailure(199, options), "");
    const auto waits = timer->GetWaits();
    ASSERT_EQ(waits.size(), 199U);
    for (std::size_t i = 0; i < waits.size(); ++i) {
        EXPECT_GE(waits[i], 0ms);
        EXPECT_LE(waits[i], i < 6 ? 1ms * (1 << i) : 64ms);
    }
    EXPECT_NE(waits[100], waits[101]) << "the same twice by chance once in ten million runs";
}

TEST_F(CRetryClientTest, ExtremeOptionsDoNotOverflow) {
    options.attempts = 1000;
    options.base = std::chrono::milliseconds::max();
    options.cap = std::chrono::milliseconds::max();
    options.deadline = std::chrono::milliseconds::max();
    options.random = [] { return 0.0; };
    EXPECT_EQ(SizeFailure(999, options), "");
    EXPECT_EQ(calls, 1000U);
}

TEST_F(CRetryClientTest, GivesUpAfterTheLastAttempt) {
    options.attempts = 5;
    options.base = 800ms;
    CRetryClient client(Failing(99), options);
    try {
        client.GetFileSize("object");
        FAIL() << "expected a failure";
    } catch (const CCloudExc& failure) {
        EXPECT_STREQ(failure.what(), "GetFileSize 'object': busy (after 5 attempts over 12 s)");
        EXPECT_EQ(typeid(failure), typeid(CCloudExc));
        EXPECT_EQ(failure.GetKind(), EFailure::transient);
        EXPECT_TRUE(failure.IsRetryable());
        EXPECT_EQ(failure.GetOperation(), "GetFileSize");
        EXPECT_EQ(failure.GetPath(), "object");
    }
    EXPECT_EQ(calls, 5U);
}

TEST_F(CRetryClientTest, ExhaustedTaskFailsTheSameAtEveryWait) {
    options.attempts = 2;
    CRetryClient client(Failing(99), options);
    const auto task = client.DeleteFileAsync("object");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(MessageOf([&] { task->Wait(); }), "GetFileSize 'object': busy (after 2 attempts over 200 ms)");
    }
    EXPECT_EQ(calls, 2U);
}

TEST_F(CRetryClientTest, CauseStaysBehindTheReason) {
    options.attempts = 2;
    CRetryClient client(Failing(99, [](const auto&) { throw CCloudExc(busy, std::runtime_error("timeout")); }),
                        options);
    EXPECT_EQ(MessageOf([&] { client.GetFileSize("object"); }),
              "GetFileSize 'object': busy (after 2 attempts over 200 ms): timeout");
}

TEST_F(CRetryClientTest, NoAttemptsMeansOne) {
    options.attempts = 0;
    EXPECT_EQ(SizeFailure(1, options), "GetFileSize 'object': busy (after 1 attempt over 0 ms)");
    EXPECT_EQ(calls, 1U);
}

TEST_F(CRetryClientTest, NoAttemptBeginsPastTheDeadline) {
    options.attempts = 100;
    options.base = 1s;
    options.cap = 4s;
    options.deadline = 10s;
    EXPECT_EQ(SizeFailure(99, options), "GetFileSize 'object': busy (after 4 attempts over 7 s)");
    EXPECT_THAT(timer->GetWaits(), ElementsAre(1s, 2s, 4s));
}

TEST_F(CRetryClientTest, AttemptAtTheDeadlineIsMade) {
    options.base = 1s;
    options.deadline = 7s;
    EXPECT_EQ(SizeFailure(99, options), "GetFileSize 'object': busy (after 4 attempts over 7 s)");
}

TEST_F(CRetryClientTest, ASlowFirstAttemptLeavesTimeForOthers) {
    options.base = 1s;
    options.deadline = 10s;
    CRetryClient client(Failing(99,
                                [this](const auto&) {
                                    timer->Advance(calls == 1 ? std::chrono::nanoseconds(1h) : 0ns);
                                    throw CCloudExc(busy);
                                }),
                        options);
    EXPECT_EQ(MessageOf([&] { client.GetFileSize("object"); }),
              "GetFileSize 'object': busy (after 4 attempts over 3607 s)");
    EXPECT_THAT(timer->GetWaits(), ElementsAre(1s, 2s, 4s));
}

TEST_F(CRetryClientTest, SlowAttemptsCountAgainstTheDeadline) {
    options.base = 0ms;
    options.deadline = 60s;
    CRetryClient client(Failing(99,
                                [this](const auto&) {
                                    timer->Advance(25s);
                                    throw CCloudExc(busy);
                                }),
                        options);
    EXPECT_EQ(MessageOf([&] { client.GetFileSize("object"); }),
              "GetFileSize 'object': busy (after 4 attempts over 100 s)");
}

TEST_F(CRetryClientTest, WaitsAsLongAsTheServiceAsks) {
    SFailure asking = busy;
    asking.retryAfter = 7s;
    CRetryClient client(Failing(1, [&](const auto&) { throw CCloudExc(asking); }), options);
    EXPECT_EQ(client.GetFileSize("object"), 10U);
    EXPECT_THAT(timer->GetWaits(), ElementsAre(7s));
}

TEST_F(CRetryClientTest, WaitsLongerThanTheServiceAsksWhenItsTurnSaysSo) {
    SFailure asking = busy;
    asking.retryAfter = 300ms;
    CRetryClient client(Failing(3, [&](const auto&) { throw CCloudExc(asking); }), options);
    EXPECT_EQ(client.GetFileSize("object"), 10U);
    EXPECT_THAT(timer->GetWaits(), ElementsAre(300ms, 400ms, 800ms));
}

TEST_F(CRetryClientTest, GivesUpWhenTheServiceAsksForMoreThanThereIs) {
    SFailure asking = busy;
    for (const auto asked : {std::chrono::milliseconds(10min), std::chrono::milliseconds::max()}) {
        calls = 0;
        asking.retryAfter = asked;
        CRetryClient client(Failing(1, [&](const auto&) { throw CCloudExc(asking); }), options);
        const std::string message = MessageOf([&] { client.GetFileSize("object"); });
        EXPECT_EQ(message, exc::Format("GetFileSize 'object': busy (after 1 attempt over 0 ms; the service asks to "
                                       "wait %1)",
                                       asked == 10min ? "600 s" : "31536000 s"));
        EXPECT_EQ(calls, 1U);
    }
    EXPECT_THAT(timer->GetWaits(), IsEmpty());
}

TEST_F(CRetryClientTest, WhatCannotHelpIsNotRetried) {
    for (const EFailure kind : {EFailure::notFound, EFailure::accessDenied, EFailure::quota, EFailure::conflict,
                                EFailure::transient, EFailure::corrupt, EFailure::other}) {
        calls = 0;
        CRetryClient client(Failing(1,
                                    [&](const auto&) {
                                        throw CCloudExc({kind, false, "Op", "object", "no"});
                                    }),
                            options);
        EXPECT_EQ(MessageOf([&] { client.GetFileSize("object"); }), "Op 'object': no") << ToStr(kind);
        EXPECT_EQ(calls, 1U);
    }
}

TEST_F(CRetryClientTest, WhatMayHelpIsRetriedWhateverItsKind) {
    for (const EFailure kind : {EFailure::accessDenied, EFailure::conflict, EFailure::corrupt}) {
        CRetryClient client(Failing(calls + 1,
                                    [&](const auto&) {
                                        throw CCloudExc({kind, true, "Op", "o", "no"});
                                    }),
                            options);
        EXPECT_EQ(client.GetFileSize("object"), 10U) << ToStr(kind);
    }
}

TEST_F(CRetryClientTest, MissingObjectIsNotRetried) {
    CRetryClient client(Failing(0), options);
    EXPECT_THROW(client.DownloadFileAsync("missing", Share())->Wait(), CObjectNotFoundExc);
    EXPECT_THROW(client.GetFileSize("missing"), CObjectNotFoundExc);
    EXPECT_EQ(calls, 2U);
}

TEST_F(CRetryClientTest, MissingObjectFoundOnlyByARetryIsAsItIs) {
    CRetryClient client(Failing(1), options);
    EXPECT_EQ(MessageOf([&] { client.GetFileSize("missing"); }), "GetFileSize 'missing': object not found");
    EXPECT_EQ(calls, 2U);
}

TEST_F(CRetryClientTest, OtherExceptionsAreNotRetried) {
    CRetryClient client(Failing(2, [](const auto&) { throw exc::CRuntimeExc("not of the cloud"); }), options);
    EXPECT_EQ(MessageOf([&] { client.GetFileSize("object"); }), "not of the cloud");
    EXPECT_EQ(MessageOf([&] { client.DeleteFileAsync("object")->Wait(); }), "not of the cloud");
    EXPECT_EQ(calls, 2U);
}

class COwnExc : public CCloudExc {
public:
    using CCloudExc::CCloudExc;
};

TEST_F(CRetryClientTest, FailureOfADerivedClassKeepsIt) {
    options.attempts = 3;
    CRetryClient client(Failing(99, [](const auto&) { throw COwnExc(busy); }), options);
    try {
        client.GetFileSize("object");
        FAIL() << "expected a failure";
    } catch (const COwnExc& failure) {
        EXPECT_STREQ(failure.what(), "GetFileSize 'object': busy");
    }
    EXPECT_EQ(calls, 3U);
}

TEST_F(CRetryClientTest, InvalidPathsAreRefusedAtOnce) {
    CRetryClient client(Failing(0), options);
    EXPECT_EQ(MessageOf([&] { client.DeleteFileAsync("a/../b")->Wait(); }),
              MessageOf([&] { store->DeleteFileAsync("a/../b")->Wait(); }));
    EXPECT_EQ(calls, 1U);
}

TEST_F(CRetryClientTest, EveryRetryIsAWarning) {
    const test::RecordingSink sink;
    options.attempts = 3;
    CRetryClient client(FailingFirst(store, 2, EFaultMode::notDone, {EOperation::copyFile}), options);
    client.CopyFileAsync("object", "copy")->Wait();
    const std::string fault = "CopyFile 'object': injected fault at call 1, not done; attempt ";
    EXPECT_THAT(sink.GetTexts(logging::level_t::warn),
                ElementsAre(fault + "2 of 3 follows in 200 ms", fault + "3 of 3 follows in 400 ms"));
    EXPECT_EQ(sink.GetEntries().front().section, "RetryClient");
}

TEST_F(CRetryClientTest, LimitAndUtilsAreThoseInside) {
    CRetryClient client(store, options);
    EXPECT_EQ(client.GetConcurrentTaskLimit(), 8U);
    EXPECT_NO_THROW(client.CreateAsyncTaskUtils()->WaitAll({}));
}

}  // namespace

}  // namespace cloudclientlib
