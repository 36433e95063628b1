#include "agent/chunk/ChunkReader.h"

#include <algorithm>
#include <stdexcept>

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "agent/chunk/ChunkTestKit.h"
#include "cloudclientlib/wrappers/CountingClient.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "cloudclientlib/wrappers/ForwardingClient.h"
#include "cloudclientlib/wrappers/GateClient.h"

namespace agent {
namespace {

using clients::CMemoryClient;
using cloudclientlib::CCountingClient;
using cloudclientlib::EOperation;
using test::BlockPath;
using test::bytes_t;
using test::KeepingSink;
using test::TextBytes;

/// Content in a store, and its chunks.
class ChunkReader : public testing::Test {
protected:
    /// The chunks of one block.
    [[nodiscard]] std::vector<SChunk> ChunksOf(std::uint32_t block) const {
        std::vector<SChunk> chunks = stored_.chunks;
        std::erase_if(chunks, [&](const SChunk& chunk) { return chunk.block != block; });
        return chunks;
    }
    [[nodiscard]] KeepingSink ReadAll(const test::client_ptr& client) const {
        return test::Read(client, stored_.newBlocks, stored_.chunks);
    }
    [[nodiscard]] bool IsSound(const KeepingSink& sink, std::size_t index) const {
        const SChunk& chunk = stored_.chunks[index];
        return sink.chunks[index] &&
               std::ranges::equal(*sink.chunks[index], std::span(bytes_).subspan(chunk.streamOffset, chunk.plainSize));
    }
    /// Chunks are sound or not as the predicate says.
    template <class F>
    void ExpectSound(const KeepingSink& sink, const F& isExpected) const {
        for (std::size_t i = 0; i < stored_.chunks.size(); ++i) {
            EXPECT_EQ(IsSound(sink, i), isExpected(stored_.chunks[i])) << "chunk " << i << ": " << sink.damages[i];
        }
    }
    [[nodiscard]] std::string PathOf(std::uint32_t block) const { return BlockPath(stored_.newBlocks[block]); }

    const bytes_t bytes_ = TextBytes(300'000, 1);
    const std::shared_ptr<CMemoryClient> memory_ = std::make_shared<CMemoryClient>();
    const SStreamResult stored_ = test::Store(test::SmallParams(memory_), bytes_);
};

TEST_F(ChunkReader, ReadsEveryBlockWithOneRequest) {
    const auto client = std::make_shared<CCountingClient>(memory_);
    const KeepingSink sink = ReadAll(client);
    ExpectSound(sink, [](const SChunk&) { return true; });
    const auto counts = client->GetCounts();
    EXPECT_EQ(counts.Of(EOperation::downloadFileRange), stored_.newBlocks.size());
    EXPECT_EQ(counts.Total(), stored_.newBlocks.size() + 1) << "and the question for the limit";
    EXPECT_EQ(counts.bytesDown, stored_.statistics.storedBytes);
    EXPECT_EQ(counts.tasksInFlight, 0U);
}

TEST_F(ChunkReader, ReadsNothingForNothing) {
    const auto client = std::make_shared<CCountingClient>(memory_);
    EXPECT_TRUE(test::Read(client, stored_.newBlocks, {}).chunks.empty());
    EXPECT_EQ(client->GetCounts().Of(EOperation::downloadFileRange), 0U);
}

TEST_F(ChunkReader, ReadsOneChunkWithItsBytesOnly) {
    const auto client = std::make_shared<CCountingClient>(memory_);
    const SChunk& chunk = stored_.chunks[stored_.chunks.size() / 2];
    const bytes_t read = test::ReadBytes(client, stored_.newBlocks, std::span(&chunk, 1));
    EXPECT_TRUE(std::ranges::equal(read, std::span(bytes_).subspan(chunk.streamOffset, chunk.plainSize)));
    EXPECT_EQ(client->GetCounts().bytesDown, chunk.storedSize);
}

TEST_F(ChunkReader, ReadsInAnyOrderAndAgain) {
    CChunkReader reader({memory_, test::backupId, test::storageId, stored_.newBlocks, {}, 2});
    std::vector<SChunk> wanted = stored_.chunks;
    std::ranges::reverse(wanted);
    wanted.push_back(wanted.front());
    wanted.push_back(wanted.front());
    for (int round = 0; round < 2; ++round) {
        KeepingSink sink;
        reader.Read(wanted, sink);
        ASSERT_EQ(sink.chunks.size(), wanted.size());
        for (std::size_t i = 0; i < wanted.size(); ++i) {
            ASSERT_TRUE(sink.chunks[i]);
            EXPECT_TRUE(std::ranges::equal(*sink.chunks[i],
                                           std::span(bytes_).subspan(wanted[i].streamOffset, wanted[i].plainSize)));
        }
    }
}

TEST_F(ChunkReader, KeepsSeveralDownloadsInFlightAndNoMoreThanAllowed) {
    for (const std::size_t limit : {1U, 3U, 50U}) {
        const auto limited = test::MemoryWithLimit(limit);
        limited->CopyState(*memory_);
        const auto client = std::make_shared<CCountingClient>(limited);
        static_cast<void>(ReadAll(client));
        EXPECT_EQ(client->GetCounts().mostTasksInFlight, std::min<std::size_t>(limit, 8));
    }
}

TEST_F(ChunkReader, AFlippedByteDamagesItsChunkAlone) {
    for (const SChunk& victim : ChunksOf(1)) {
        for (const std::uint32_t at : {0U, victim.storedSize / 2, victim.storedSize - 1}) {
            const auto client = memory_->Clone();
            bytes_t block = test::Download(client, PathOf(1));
            block[victim.blockOffset + at] = static_cast<char>(block[victim.blockOffset + at] ^ 0x10);
            test::Upload(client, PathOf(1), block);
            const KeepingSink sink = ReadAll(client);
            ExpectSound(sink, [&](const SChunk& chunk) { return chunk != victim; });
            const auto index =
                static_cast<std::size_t>(std::ranges::find(stored_.chunks, victim) - stored_.chunks.begin());
            EXPECT_EQ(sink.damages[index].find("The chunk at byte " + std::to_string(victim.blockOffset) +
                                               " of block '" + PathOf(1) + "' cannot be read: "),
                      0U)
                << sink.damages[index];
        }
    }
}

TEST_F(ChunkReader, SaysThatTheContentIsNotTheChunks) {
    std::vector<SChunk> wanted{stored_.chunks[0]};
    wanted[0].sha256.bytes.fill(0xAB);
    const KeepingSink sink = test::Read(memory_, stored_.newBlocks, wanted);
    EXPECT_EQ(sink.damages[0], "The chunk at byte 0 of block '" + PathOf(0) +
                                   "' cannot be read: its content does not have the SHA-256 "
                                   "abababababababababababababababababababababababababababababababab");
}

TEST_F(ChunkReader, ACutOffBlockKeepsItsFirstChunks) {
    const auto chunks = ChunksOf(2);
    for (const std::uint32_t size :
         {0U, 1U, chunks[1].blockOffset, chunks[1].blockOffset + 1, chunks.back().blockOffset}) {
        const auto client = memory_->Clone();
        bytes_t block = test::Download(client, PathOf(2));
        block.resize(size);
        test::Upload(client, PathOf(2), block);
        const KeepingSink sink = ReadAll(client);
        ExpectSound(sink, [&](const SChunk& chunk) {
            return chunk.block != 2 || chunk.blockOffset + chunk.storedSize <= size;
        });
        const auto last =
            static_cast<std::size_t>(std::ranges::find(stored_.chunks, chunks.back()) - stored_.chunks.begin());
        const std::uint32_t end = chunks.back().blockOffset + chunks.back().storedSize;
        EXPECT_EQ(sink.damages[last], "The chunk at byte " + std::to_string(chunks.back().blockOffset) + " of block '" +
                                          PathOf(2) + "' cannot be read: of the bytes 0 to " + std::to_string(end) +
                                          " asked for only " + std::to_string(size) + " came");
    }
}

TEST_F(ChunkReader, AMissingBlockDamagesItsChunksAlone) {
    memory_->DeleteFileAsync(PathOf(1))->Wait();
    const KeepingSink sink = ReadAll(memory_);
    ExpectSound(sink, [](const SChunk& chunk) { return chunk.block != 1; });
    EXPECT_EQ(sink.notFound, ChunksOf(1).size()) << "the cause can be told";
    const auto first =
        static_cast<std::size_t>(std::ranges::find(stored_.chunks, ChunksOf(1)[0]) - stored_.chunks.begin());
    EXPECT_EQ(sink.damages[first].find("The chunk at byte 0 of block '" + PathOf(1) +
                                       "' cannot be read: DownloadFile '" + PathOf(1) + "': "),
              0U)
        << sink.damages[first];
}

TEST_F(ChunkReader, AFailedDownloadDamagesWhatItShouldHaveBrought) {
    using cloudclientlib::EFaultMode;
    for (const auto mode : {EFaultMode::notDone, EFaultMode::doneButFailed, EFaultMode::doneInPart}) {
        for (std::uint64_t call = 1; call <= stored_.newBlocks.size(); ++call) {
            const auto faults = std::make_shared<cloudclientlib::CFaultClient>(memory_);
            faults->Arm({.call = call, .mode = mode});
            const KeepingSink sink = ReadAll(faults);
            ExpectSound(sink, [&](const SChunk& chunk) { return chunk.block + 1 != call; });
        }
    }
}

/// Changes a byte of the first ranged reads on their way.
class CNoisyClient : public cloudclientlib::CForwardingClient {
public:
    CNoisyClient(test::client_ptr inner, unsigned noisy) : CForwardingClient(std::move(inner)), noisy_(noisy) {}
    using CForwardingClient::DownloadFileAsync;
    task::task_ptr DownloadFileAsync(const std::string& path, buffer_ptr buffer, unsigned long offset,
                                     unsigned long size) override {
        auto done = CForwardingClient::DownloadFileAsync(path, buffer, offset, size);
        if (noisy_ > 0) {
            --noisy_;
            done->Wait();
            buffer->at(buffer->size() / 2) ^= 1;
        }
        return done;
    }

private:
    unsigned noisy_;
};

TEST_F(ChunkReader, BytesChangedOnTheirWayAreReadOnceMore) {
    ExpectSound(ReadAll(std::make_shared<CNoisyClient>(memory_, 1)), [](const SChunk&) { return true; });
    constexpr unsigned always = 1000;
    EXPECT_GT(ReadAll(std::make_shared<CNoisyClient>(memory_, always)).CountDamaged(), 0U);
}

TEST_F(ChunkReader, HostileRecordsHarmNothing) {
    std::vector<SChunk> wanted = stored_.chunks;
    wanted[1].block = 0xFFFFFFFF;
    wanted[3].plainSize = 0xFFFFFFFF;
    wanted[4].blockOffset = 0xFFFFFFFF;
    wanted[6].storedSize = 0;
    wanted[7].codec = static_cast<EChunkCodec>(9);
    wanted[9].plainSize = maxChunkSize;  // more than there is: found while it is decompressed
    wanted[10].codec = EChunkCodec::plain;
    const KeepingSink sink = test::Read(memory_, stored_.newBlocks, wanted);
    const std::set<std::size_t> hostile{1, 3, 4, 6, 7, 9, 10};
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        EXPECT_EQ(IsSound(sink, i), !hostile.contains(i)) << i << sink.damages[i];
    }
    EXPECT_EQ(sink.damages[1], "The chunk at byte " + std::to_string(wanted[1].blockOffset) +
                                   " of block 4294967295 cannot be read: the table of blocks has only " +
                                   std::to_string(stored_.newBlocks.size()));
    EXPECT_EQ(sink.damages[3], "The chunk at byte " + std::to_string(wanted[3].blockOffset) + " of block '" +
                                   PathOf(0) +
                                   "' cannot be read: its plain size 4294967295 is not between 1 and 2097152");
}

TEST_F(ChunkReader, ATableThatLiesAboutABlocksSizeGainsNothing) {
    test::blocks_t blocks = stored_.newBlocks;
    for (auto& block : blocks) {
        block.number32 = 0xFFFFFFFF;
    }
    std::vector<SChunk> wanted = stored_.chunks;
    wanted[0].blockOffset = 0xF0000000;
    const auto client = std::make_shared<CCountingClient>(memory_);
    const KeepingSink sink = test::Read(client, blocks, wanted);
    EXPECT_EQ(sink.CountDamaged(), 1U);
    EXPECT_EQ(sink.damages[0], "The chunk at byte 4026531840 of block '" + PathOf(0) +
                                   "' cannot be read: of the bytes 4026531840 to " +
                                   std::to_string(4026531840U + wanted[0].storedSize) + " asked for only 0 came");
    EXPECT_LE(client->GetCounts().bytesDown, stored_.statistics.storedBytes);
}

class FailingSink : public IChunkSink {
public:
    explicit FailingSink(std::size_t at) : at_(at) {}
    void OnChunk(std::size_t index, std::span<const char>) override { Count(index); }
    void OnDamagedChunk(std::size_t index, const std::exception&) override { Count(index); }

private:
    void Count(std::size_t index) const {
        if (index == at_) {
            throw std::runtime_error("the disk is full");
        }
    }
    const std::size_t at_;
};

TEST_F(ChunkReader, TheSinksFailureEndsTheReading) {
    const auto client = std::make_shared<CCountingClient>(memory_);
    memory_->DeleteFileAsync(PathOf(1))->Wait();
    CChunkReader reader({client, test::backupId, test::storageId, stored_.newBlocks, {}, 2});
    for (const std::size_t at : {std::size_t{0}, stored_.chunks.size() / 2, stored_.chunks.size() - 1}) {
        FailingSink sink(at);
        EXPECT_THROW(reader.Read(stored_.chunks, sink), std::runtime_error);
        EXPECT_EQ(client->GetCounts().tasksInFlight, 0U);
    }
    KeepingSink sink;
    reader.Read(stored_.chunks, sink);
    ExpectSound(sink, [](const SChunk& chunk) { return chunk.block != 1; });
}

TEST_F(ChunkReader, APathThatTheClientRefusesIsDamage) {
    CChunkReader reader({memory_, "..", test::storageId, stored_.newBlocks, {}, 1});
    KeepingSink sink;
    reader.Read(stored_.chunks, sink);
    EXPECT_EQ(sink.CountDamaged(), stored_.chunks.size());
}

RC_GTEST_FIXTURE_PROP(ChunkReader, AnyRecordIsReadOrRefused, ()) {
    std::vector<SChunk> wanted = stored_.chunks;
    const auto index = *rc::gen::inRange<std::size_t>(0, wanted.size());
    SChunk& chunk = wanted[index];
    chunk.plainSize =
        *rc::gen::elementOf(std::vector<std::uint32_t>{chunk.plainSize, chunk.plainSize + 1, 0, 1, 0xFFFFFFFF});
    chunk.storedSize =
        *rc::gen::elementOf(std::vector<std::uint32_t>{chunk.storedSize, chunk.storedSize - 1, 0, 0xFFFFFFFF});
    chunk.block = *rc::gen::inRange<std::uint32_t>(0, 20);
    chunk.blockOffset = *rc::gen::arbitrary<std::uint32_t>();
    chunk.codec = static_cast<EChunkCodec>(*rc::gen::inRange(0, 4));
    const KeepingSink sink = test::Read(memory_, stored_.newBlocks, wanted);
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        const bool isFine = i == index || IsSound(sink, i);
        RC_ASSERT(isFine);
    }
    const auto& read = sink.chunks[index];
    const bool isTrue = read ? digest::Sha256(*read) == chunk.sha256 : !sink.damages[index].empty();
    RC_ASSERT(isTrue);
}

}  // namespace
}  // namespace agent
