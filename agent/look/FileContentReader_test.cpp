#include "agent/look/FileContentReader.h"

#include "agent/chunk/ChunkTestKit.h"
#include "cloudclientlib/wrappers/CountingClient.h"

namespace {

using namespace test;
using agent::CMetaState;
using agent::SEntry;

struct SStored {
    client_ptr client = std::make_shared<clients::CMemoryClient>(clients::SMemoryOptions{});
    bytes_t bytes;
    CMetaState state;
};

SStored MakeStored() {
    SStored stored;
    stored.bytes = RandomBytes(200'000, 1);
    const auto result = Store(SmallParams(stored.client), stored.bytes);
    for (const auto& block : result.newBlocks) {
        stored.state.AddBlock(block);
    }
    for (const auto& chunk : result.chunks) {
        stored.state.AddChunk(chunk);
    }
    return stored;
}

bytes_t ReadFile(const client_ptr& client, const CMetaState& state, const SEntry& file) {
    bytes_t bytes;
    agent::ReadFileContent({client, backupId, storageId, state.GetBlocks()}, state, file,
                           [&](std::span<const char> part) { bytes.insert(bytes.end(), part.begin(), part.end()); });
    return bytes;
}

TEST(FileContentReader, HolesAreZerosAndSegmentsMayLieAnywhere) {
    const SStored stored = MakeStored();
    SEntry file;
    file.size = 300'000;
    file.segments = {{10, 150'001, 30'000}, {200'000, 7, 99}, {200'099, 7, 99}};
    bytes_t expected(file.size);
    std::copy_n(stored.bytes.begin() + 150'001, 30'000, expected.begin() + 10);
    std::copy_n(stored.bytes.begin() + 7, 99, expected.begin() + 200'000);
    std::copy_n(stored.bytes.begin() + 7, 99, expected.begin() + 200'099);
    EXPECT_EQ(ReadFile(stored.client, stored.state, file), expected);
}

TEST(FileContentReader, EmptyFilesAndHolesAloneReadNothing) {
    const SStored stored = MakeStored();
    const client_ptr nothing = std::make_shared<clients::CMemoryClient>(clients::SMemoryOptions{});
    SEntry file;
    EXPECT_EQ(ReadFile(nothing, stored.state, file), bytes_t());
    file.size = 70'000;
    EXPECT_EQ(ReadFile(nothing, stored.state, file), bytes_t(70'000));
}

TEST(FileContentReader, ASmallFileCostsTheRangeOfItsChunks) {
    const SStored stored = MakeStored();
    const auto counting = std::make_shared<cloudclientlib::CCountingClient>(stored.client);
    SEntry file;
    file.size = 50;
    file.segments = {{0, 100'000, 50}};
    const auto chunks = stored.state.FindChunks(100'000, 50);
    EXPECT_EQ(ReadFile(counting, stored.state, file),
              bytes_t(stored.bytes.begin() + 100'000, stored.bytes.begin() + 100'050));
    std::uint64_t size = 0;
    for (const auto& chunk : chunks) {
        size += chunk.storedSize;
    }
    const auto counts = counting->GetCounts();
    EXPECT_EQ(counts.bytesDown, size);
    EXPECT_LE(counts.Of(cloudclientlib::EOperation::downloadFileRange), chunks.size());
    EXPECT_EQ(counts.Of(cloudclientlib::EOperation::downloadFile), 0U);
}

TEST(FileContentReader, ADamagedChunkEndsItBehindWhatIsRight) {
    SStored stored = MakeStored();
    const auto& chunk = stored.state.GetChunks()[3];
    const std::string path = BlockPath(stored.state.GetBlocks()[chunk.block]);
    auto block = Download(stored.client, path);
    block[chunk.blockOffset] = static_cast<char>(block[chunk.blockOffset] ^ 1);
    Upload(stored.client, path, block);
    SEntry file;
    file.size = 100'000;
    file.segments = {{0, 0, 100'000}};
    bytes_t bytes;
    try {
        agent::ReadFileContent({stored.client, backupId, storageId, stored.state.GetBlocks()}, stored.state, file,
                               [&](auto part) { bytes.insert(bytes.end(), part.begin(), part.end()); });
        FAIL() << "the damage was not noticed";
    } catch (const std::exception& failure) {
        EXPECT_TRUE(std::string(failure.what())
                        .starts_with("The content cannot be read from byte " + std::to_string(chunk.streamOffset) +
                                     " on: The chunk at byte " + std::to_string(chunk.blockOffset) + " of block '" +
                                     path + "' cannot be read"))
            << failure.what();
    }
    EXPECT_EQ(bytes,
              bytes_t(stored.bytes.begin(), stored.bytes.begin() + static_cast<std::ptrdiff_t>(chunk.streamOffset)));
}

}  // namespace
