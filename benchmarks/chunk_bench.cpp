// The content stream: what its parts do alone, what a run and a restore do as a whole, and what the sizes of chunks
// cost. Bytes per second are plain bytes. Real time, since the whole uses several threads.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "agent/chunk/ChunkReader.h"
#include "agent/chunk/ChunkStream.h"
#include "clients/memory/MemoryClient.h"
#include "cloudbackuplib/CloudPaths.h"
#include "cloudclientlib/wrappers/ForwardingClient.h"
#include "common/digest.h"

namespace {

using bytes_t = std::vector<char>;

constexpr std::size_t mib = 1U << 20U;
constexpr std::size_t inputSize = 256 * mib;

bytes_t MakeRandom(std::size_t size, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    bytes_t bytes(size);
    for (std::size_t i = 0; i + 8 <= size; i += 8) {
        const std::uint64_t value = random();
        std::memcpy(&bytes[i], &value, sizeof(value));
    }
    return bytes;
}

/// Words of a vocabulary, the first ones the most often: compresses about as source code does.
bytes_t MakeText(std::size_t size, std::uint64_t seed) {
    std::mt19937_64 random(seed);
    std::vector<std::string> words(20'000);
    for (auto& word : words) {
        word.resize(2 + random() % 9);
        std::ranges::generate(word, [&] { return static_cast<char>('a' + random() % 26); });
        word += ' ';
    }
    std::geometric_distribution<std::size_t> pick(0.0008);
    bytes_t bytes;
    bytes.reserve(size + 16);
    while (bytes.size() < size) {
        const std::string& word = words[pick(random) % words.size()];
        bytes.insert(bytes.end(), word.begin(), word.end());
    }
    bytes.resize(size);
    return bytes;
}

enum EKind { random, text };

const bytes_t& Input(std::int64_t kind) {
    static const bytes_t randomBytes = MakeRandom(inputSize, 1);
    static const bytes_t textBytes = MakeText(inputSize, 1);
    return kind == random ? randomBytes : textBytes;
}

void SetBytes(benchmark::State& state, std::size_t size) {
    state.SetBytesProcessed(static_cast<std::int64_t>(size) * state.iterations());
}

std::vector<std::size_t> Cut(std::span<const char> bytes, const agent::SChunkSizes& sizes) {
    agent::CChunker chunker(sizes);
    std::vector<std::size_t> lengths{0};
    while (!bytes.empty()) {
        const auto cut = chunker.Next(bytes);
        lengths.back() += cut.size;
        bytes = bytes.subspan(cut.size);
        if (cut.isEnd && !bytes.empty()) {
            lengths.push_back(0);
        }
    }
    return lengths;
}

void BM_Chunker(benchmark::State& state) {
    const bytes_t& bytes = Input(state.range(0));
    std::size_t chunks = 0;
    for (auto _ : state) {
        chunks = Cut(bytes, {}).size();
    }
    SetBytes(state, bytes.size());
    state.counters["meanKiB"] = static_cast<double>(bytes.size()) / 1024 / static_cast<double>(chunks);
}
BENCHMARK(BM_Chunker)->Arg(random)->Arg(text)->ArgName("text")->Unit(benchmark::kMillisecond);

void BM_Sha256(benchmark::State& state) {
    const auto chunk = std::span(Input(random)).first(256U << 10U);
    for (auto _ : state) {
        benchmark::DoNotOptimize(digest::Sha256(chunk));
    }
    SetBytes(state, chunk.size());
}
BENCHMARK(BM_Sha256);

void BM_Md5(benchmark::State& state) {
    const auto block = std::span(Input(random)).first(4 * mib);
    for (auto _ : state) {
        benchmark::DoNotOptimize(digest::Md5(block));
    }
    SetBytes(state, block.size());
}
BENCHMARK(BM_Md5)->Unit(benchmark::kMillisecond);

void BM_BlockName(benchmark::State& state) {
    const auto md5 = digest::Md5(std::span(Input(random)).first(100));
    for (auto _ : state) {
        benchmark::DoNotOptimize(cloudbackuplib::backup::paths::DigestToBlockName(md5));
    }
}
BENCHMARK(BM_BlockName);

void BM_BlockPath(benchmark::State& state) {
    const auto md5 = digest::Md5(std::span(Input(random)).first(100));
    const auto storage = guid::guid_t::CreateNew();
    namespace paths = cloudbackuplib::backup::paths;
    for (auto _ : state) {
        benchmark::DoNotOptimize(paths::GetBackupBlockPath("backup", storage, paths::DigestToBlockName(md5)));
    }
}
BENCHMARK(BM_BlockPath);

void BM_Compress(benchmark::State& state) {
    const bytes_t& bytes = Input(state.range(0));
    constexpr std::size_t size = 256U << 10U;
    agent::CChunkCompressor compressor(static_cast<int>(state.range(1)));
    bytes_t room(size);
    std::size_t at = 0;
    std::size_t stored = 0;
    for (auto _ : state) {
        stored += compressor.Compress(std::span(bytes).subspan(at, size), room).bytes.size();
        at = (at + size) % (64 * mib);
    }
    SetBytes(state, size);
    state.counters["ratio"] = static_cast<double>(stored) / static_cast<double>(size) /
                              static_cast<double>(std::max<std::int64_t>(state.iterations(), 1));
}
BENCHMARK(BM_Compress)->ArgsProduct({{random, text}, {1, 3, 6, 9}})->ArgNames({"text", "level"});

void BM_Decompress(benchmark::State& state) {
    const auto plain = std::span(Input(text)).first(256U << 10U);
    bytes_t room(plain.size());
    const auto stored = agent::CChunkCompressor(3).Compress(plain, room);
    bytes_t again(plain.size());
    agent::CChunkDecompressor decompressor;
    for (auto _ : state) {
        decompressor.Decompress(stored, again);
    }
    SetBytes(state, plain.size());
}
BENCHMARK(BM_Decompress);

/// Takes every upload and keeps none.
class CNullClient : public cloudclientlib::CForwardingClient {
public:
    CNullClient() : CForwardingClient(std::make_shared<clients::CMemoryClient>()) {}
    task::task_ptr UploadFileAsync(const std::string&, buffer_ptr) override {
        return task::RunNow([] {});
    }
};

agent::SChunkStreamParams StreamParams(std::shared_ptr<cloudclientlib::ICloudClient> client) {
    agent::SChunkStreamParams params;
    params.target = {std::move(client), "backup", guid::guid_t::CreateNew(), 1};
    return params;
}

agent::SStreamResult RunStream(const agent::SChunkStreamParams& params, std::span<const char> bytes) {
    agent::CChunkStream stream(params);
    constexpr std::size_t piece = 128U << 10U;
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        stream.Append(bytes.subspan(at, std::min(piece, bytes.size() - at)));
    }
    return stream.Finish();
}

void BM_Stream(benchmark::State& state) {
    const bytes_t& bytes = Input(state.range(0));
    auto params = StreamParams(std::make_shared<CNullClient>());
    params.threads = static_cast<unsigned>(state.range(1));
    agent::SStreamStatistics statistics;
    for (auto _ : state) {
        statistics = RunStream(params, bytes).statistics;
    }
    SetBytes(state, bytes.size());
    state.counters["blocks"] = static_cast<double>(statistics.blocksUploaded);
    state.counters["blockMiB"] =
        static_cast<double>(statistics.storedBytes) / mib / static_cast<double>(statistics.blocksUploaded);
}
BENCHMARK(BM_Stream)
    ->ArgsProduct({{random, text}, {1, 2, 4}})
    ->ArgNames({"text", "threads"})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

/// Content that is known already: cut and digested, nothing else.
void BM_StreamKnown(benchmark::State& state) {
    const bytes_t& bytes = Input(text);
    auto params = StreamParams(std::make_shared<CNullClient>());
    const auto known = RunStream(params, bytes);
    params.knownBlocks = known.newBlocks;
    params.knownChunks = known.chunks;
    for (auto _ : state) {
        benchmark::DoNotOptimize(RunStream(params, bytes));
    }
    SetBytes(state, bytes.size());
}
BENCHMARK(BM_StreamKnown)->Unit(benchmark::kMillisecond)->UseRealTime();

class CCountingSink : public agent::IChunkSink {
public:
    void OnChunk(std::size_t, std::span<const char> plain) override { bytes_ += plain.size(); }
    void OnDamagedChunk(std::size_t, const std::exception& reason) override { throw std::runtime_error(reason.what()); }
    [[nodiscard]] std::size_t GetBytes() const { return bytes_; }

private:
    std::size_t bytes_ = 0;
};

void BM_Reader(benchmark::State& state) {
    const bytes_t& bytes = Input(state.range(0));
    const auto client = std::make_shared<clients::CMemoryClient>();
    const auto params = StreamParams(client);
    const auto stored = RunStream(params, bytes);
    agent::CChunkReader reader({client, "backup", params.target.storageId, stored.newBlocks});
    for (auto _ : state) {
        CCountingSink sink;
        reader.Read(stored.chunks, sink);
        if (sink.GetBytes() != bytes.size()) {
            state.SkipWithError("bytes are missing");
        }
    }
    SetBytes(state, bytes.size());
}
BENCHMARK(BM_Reader)->Arg(random)->Arg(text)->ArgName("text")->Unit(benchmark::kMillisecond)->UseRealTime();

/// The table of 4 million chunks (about 1 TiB of content) that a run begins with.
void BM_KnownTable(benchmark::State& state) {
    std::vector<agent::SChunk> chunks(4'000'000);
    std::mt19937_64 random(1);
    for (auto& chunk : chunks) {
        chunk.plainSize = chunk.storedSize = 256U << 10U;
        for (std::size_t i = 0; i < 4; ++i) {
            const std::uint64_t value = random();
            std::memcpy(chunk.sha256.bytes.data() + 8 * i, &value, sizeof(value));
        }
    }
    std::vector<cloudbackuplib::backup::SBlockExternalId> blocks(1);
    blocks[0].number32 = 4U << 20U;
    for (auto _ : state) {
        const agent::CChunkTable table(chunks, blocks);
        benchmark::DoNotOptimize(table.Find(chunks[7].sha256, chunks[7].plainSize));
    }
}
BENCHMARK(BM_KnownTable)->Unit(benchmark::kMillisecond);

/// What a size of chunks costs: new plain bytes for each of 100 edits of 32 bytes, half of them insertions, and chunks.
void BM_ChunkSize(benchmark::State& state) {
    const auto average = static_cast<std::uint32_t>(state.range(0)) << 10U;
    const agent::SChunkSizes sizes{average / 4, average, std::min(average * 4, 4U << 20U)};
    const bytes_t& before = Input(random);
    bytes_t after = before;
    std::mt19937_64 random(5);
    for (int i = 0; i < 100; ++i) {
        const auto at = static_cast<std::ptrdiff_t>(random() % (after.size() - 32));
        const bytes_t edit = MakeRandom(32, random());
        if (i % 2 == 0) {
            std::ranges::copy(edit, after.begin() + at);
        } else {
            after.insert(after.begin() + at, edit.begin(), edit.end());
        }
    }
    std::size_t chunks = 0;
    std::size_t added = 0;
    for (auto _ : state) {
        std::set<digest::sha256_digest_t> known;
        added = chunks = 0;
        for (const bytes_t* bytes : {&before, static_cast<const bytes_t*>(&after)}) {
            std::span<const char> left(*bytes);
            for (const std::size_t length : Cut(*bytes, sizes)) {
                const bool isNew = known.insert(digest::Sha256(left.first(length))).second;
                added += bytes == &after && isNew ? length : 0;
                chunks += bytes == &before ? 1U : 0U;
                left = left.subspan(length);
            }
        }
    }
    state.counters["KiBPerEdit"] = static_cast<double>(added) / 1024 / 100;
    state.counters["chunksPerGiB"] = static_cast<double>(chunks) * 1024 * mib / inputSize;
}
BENCHMARK(BM_ChunkSize)->RangeMultiplier(2)->Range(64, 1024)->ArgName("avgKiB")->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
