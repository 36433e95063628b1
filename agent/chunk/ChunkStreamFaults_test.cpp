#include <algorithm>
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "agent/chunk/ChunkStream.h"
#include "agent/chunk/ChunkTestKit.h"
#include "cloudclientlib/wrappers/CountingClient.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "cloudclientlib/wrappers/GateClient.h"

/// What failures, an interrupted run and a slow store do to the content stream.
namespace agent {
namespace {

using clients::CMemoryClient;
using cloudclientlib::CCloudExc;
using cloudclientlib::CCountingClient;
using cloudclientlib::CFaultClient;
using cloudclientlib::CGateClient;
using cloudclientlib::EFaultMode;
using cloudclientlib::EOperation;
using test::bytes_t;
using test::RandomBytes;
using test::SmallParams;
using test::Store;
using test::TextBytes;

class ChunkStreamFaults : public testing::TestWithParam<EFaultMode> {};

/// Fails call n for n = 1, 2, ... until the run succeeds; after each failure the run is repeated.
TEST_P(ChunkStreamFaults, ARunCutOffAnywhereIsTakenUpAgain) {
    const bytes_t bytes = TextBytes(300'000, 1);
    const SStreamResult expected = Store(SmallParams(std::make_shared<CMemoryClient>()), bytes);
    bool isReached = true;
    std::uint64_t call = 0;
    while (isReached) {
        const auto memory = std::make_shared<CMemoryClient>();
        const auto faults = std::make_shared<CFaultClient>(memory);
        faults->Arm({.call = ++call, .mode = GetParam()});
        bool hasThrown = false;
        try {
            static_cast<void>(Store(SmallParams(faults), bytes));
        } catch (const CCloudExc&) {
            hasThrown = true;
        }
        isReached = faults->IsReached();
        ASSERT_EQ(hasThrown, isReached) << "call " << call;
        const std::uint64_t before = memory->GetObjectCount("");
        const auto counting = std::make_shared<CCountingClient>(memory);
        const SStreamResult again = Store(SmallParams(counting), bytes);
        ASSERT_EQ(again.chunks, expected.chunks);
        ASSERT_EQ(again.newBlocks, expected.newBlocks);
        ASSERT_EQ(again.statistics.blocksFound, before) << "what was finished is not uploaded again";
        ASSERT_EQ(counting->GetCounts().Of(EOperation::uploadFile), expected.newBlocks.size() - before);
        ASSERT_EQ(memory->GetObjectCount(""), expected.newBlocks.size());
        ASSERT_EQ(test::ReadBytes(memory, again.newBlocks, again.chunks), bytes);
    }
    EXPECT_EQ(call, expected.newBlocks.size() + 2) << "a question, an upload for every block, and one that succeeds";
}

/// The same for the run that takes up another, which asks for every block.
TEST_P(ChunkStreamFaults, ARepeatedRunMayBeCutOffToo) {
    const bytes_t bytes = TextBytes(200'000, 1);
    const auto half = std::make_shared<CMemoryClient>();
    static_cast<void>(Store(SmallParams(half), std::span(bytes).first(100'000)));
    const SStreamResult expected = Store(SmallParams(std::make_shared<CMemoryClient>()), bytes);
    bool isReached = true;
    for (std::uint64_t call = 1; isReached; ++call) {
        const auto memory = half->Clone();
        const auto faults = std::make_shared<CFaultClient>(memory);
        faults->Arm({.call = call, .mode = GetParam()});
        try {
            static_cast<void>(Store(SmallParams(faults), bytes));
            // A question whose answer is "not there" says so, lost or not.
            ASSERT_TRUE(!faults->IsReached() || GetParam() != EFaultMode::notDone);
        } catch (const CCloudExc&) {
            ASSERT_TRUE(faults->IsReached());
        }
        isReached = faults->IsReached();
        const SStreamResult again = Store(SmallParams(memory), bytes);
        ASSERT_EQ(again.newBlocks, expected.newBlocks);
        ASSERT_EQ(test::ReadBytes(memory, again.newBlocks, again.chunks), bytes);
    }
}

TEST_P(ChunkStreamFaults, ACrashLeavesOnlyWholeBlocks) {
    const bytes_t bytes = TextBytes(300'000, 1);
    const SStreamResult expected = Store(SmallParams(std::make_shared<CMemoryClient>()), bytes);
    const auto paths = test::BlockPaths(expected.newBlocks);
    for (std::uint64_t call = 1; call <= expected.newBlocks.size() + 1; ++call) {
        const auto memory = std::make_shared<CMemoryClient>();
        const auto faults = std::make_shared<CFaultClient>(memory);
        faults->Arm({.call = call, .mode = GetParam(), .crash = true});
        EXPECT_THROW(static_cast<void>(Store(SmallParams(faults), bytes)), CCloudExc);
        std::uint64_t whole = 0;
        for (const auto& path : paths) {
            whole += memory->IsFileExist(path) ? 1U : 0U;
        }
        EXPECT_EQ(memory->GetObjectCount(""), whole);
        const SStreamResult again = Store(SmallParams(memory), bytes);
        EXPECT_EQ(again.newBlocks, expected.newBlocks);
        EXPECT_EQ(again.statistics.blocksFound, whole);
    }
}

std::string ModeName(const testing::TestParamInfo<EFaultMode>& mode) {
    switch (mode.param) {
        case EFaultMode::notDone:
            return "NotDone";
        case EFaultMode::doneButFailed:
            return "DoneButFailed";
        case EFaultMode::doneInPart:
            return "DoneInPart";
    }
    return {};
}

INSTANTIATE_TEST_SUITE_P(Modes, ChunkStreamFaults,
                         testing::Values(EFaultMode::notDone, EFaultMode::doneButFailed, EFaultMode::doneInPart),
                         ModeName);

TEST(ChunkStreamFailure, ComesOnceAndEndsTheStream) {
    const auto memory = std::make_shared<CMemoryClient>();
    const auto counting = std::make_shared<CCountingClient>(memory);
    const auto faults = std::make_shared<CFaultClient>(counting);
    faults->Arm({.call = 2, .kinds = {EOperation::uploadFile}});
    CChunkStream stream(SmallParams(faults));
    const bytes_t bytes = RandomBytes(1U << 20U, 1);
    EXPECT_THROW(
        {
            for (std::size_t at = 0; at < bytes.size(); at += 1024) {
                stream.Append(std::span(bytes).subspan(at, 1024));
            }
        },
        CCloudExc);
    EXPECT_EQ(counting->GetCounts().tasksInFlight, 0U);
    const auto calls = counting->GetCounts();
    EXPECT_THROW(stream.Append(bytes), exc::CRuntimeExc);
    EXPECT_THROW(static_cast<void>(stream.Finish()), exc::CRuntimeExc);
    EXPECT_EQ(counting->GetCounts(), calls);
}

TEST(ChunkStreamFailure, OfTheLastBlockComesWithFinish) {
    const auto faults = std::make_shared<CFaultClient>(std::make_shared<CMemoryClient>());
    faults->Arm({.call = 1, .kinds = {EOperation::uploadFile}});
    CChunkStream stream(SmallParams(faults));
    stream.Append(RandomBytes(5000, 1));
    EXPECT_THROW(static_cast<void>(stream.Finish()), CCloudExc);
}

TEST(ChunkStreamFailure, AStreamWithAFailureCanBeLeft) {
    const auto faults = std::make_shared<CFaultClient>(std::make_shared<CMemoryClient>());
    faults->Arm({.call = 1, .kinds = {EOperation::uploadFile}, .crash = true});
    CChunkStream stream(SmallParams(faults));
    try {
        stream.Append(RandomBytes(100'000, 1));
    } catch (const CCloudExc&) {  // perhaps already here, perhaps nobody ever sees it
    }
}

/// While the store takes nothing, only so much content is taken in.
TEST(ChunkStreamBackPressure, AppendWaitsForTheStore) {
    const auto memory = test::MemoryWithLimit(3);
    const auto gate = std::make_shared<CGateClient>(memory, cloudclientlib::operation_set{EOperation::uploadFile});
    const auto counting = std::make_shared<CCountingClient>(gate);
    gate->Close();
    SChunkStreamParams params = SmallParams(counting);
    CChunkStream stream(params);
    const bytes_t bytes = RandomBytes(4U << 20U, 1);
    std::atomic<std::size_t> taken = 0;
    std::thread appending([&] {
        for (std::size_t at = 0; at < bytes.size(); at += 1024) {
            stream.Append(std::span(bytes).subspan(at, 1024));
            taken = at + 1024;
        }
    });
    gate->WaitHeld(3);
    EXPECT_EQ(gate->GetHeld(), 3U);
    // One block is being gathered or waits, and the chunks of the pipeline.
    EXPECT_LE(taken, 4 * params.blockSizes.maximum + 32 * params.chunkSizes.maximum);
    gate->Open();
    appending.join();
    const SStreamResult result = stream.Finish();
    EXPECT_EQ(counting->GetCounts().mostTasksInFlight, 3U);
    EXPECT_EQ(test::ReadBytes(memory, result.newBlocks, result.chunks), bytes);
}

TEST(ChunkStreamBackPressure, NeverMoreThanEightUploads) {
    const auto memory = test::MemoryWithLimit(100);
    const auto gate = std::make_shared<CGateClient>(memory, cloudclientlib::operation_set{EOperation::uploadFile});
    const auto counting = std::make_shared<CCountingClient>(gate);
    gate->Close();
    CChunkStream stream(SmallParams(counting));
    std::thread appending([&] { stream.Append(RandomBytes(4U << 20U, 1)); });
    gate->WaitHeld(8);
    EXPECT_EQ(gate->GetHeld(), 8U);
    gate->Open();
    appending.join();
    static_cast<void>(stream.Finish());
    EXPECT_EQ(counting->GetCounts().mostTasksInFlight, 8U);
}

/// Somebody's object under a block's name is neither overwritten nor taken.
TEST(ChunkStreamCollision, AnotherObjectUnderABlocksName) {
    const bytes_t bytes = TextBytes(100'000, 1);
    const SStreamResult expected = Store(SmallParams(std::make_shared<CMemoryClient>()), bytes);
    for (std::size_t i = 0; i < expected.newBlocks.size(); ++i) {
        const auto memory = std::make_shared<CMemoryClient>();
        const std::string path = test::BlockPath(expected.newBlocks[i]);
        test::Upload(memory, path, bytes_t(10, 'x'));
        const SStreamResult result = Store(SmallParams(memory), bytes);
        EXPECT_EQ(test::Download(memory, path), bytes_t(10, 'x'));
        EXPECT_NE(result.newBlocks[i].id, expected.newBlocks[i].id);
        EXPECT_EQ(result.newBlocks[i].number32, expected.newBlocks[i].number32 + 1);
        EXPECT_EQ(result.chunks, expected.chunks);
        EXPECT_EQ(test::ReadBytes(memory, result.newBlocks, result.chunks), bytes);
        // Taken up again, it finds the block under its other name.
        EXPECT_EQ(Store(SmallParams(memory), bytes).statistics.blocksUploaded, 0U);
    }
}

}  // namespace
}  // namespace agent
