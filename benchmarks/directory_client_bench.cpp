// How fast the directory client stores and reads objects of a block's size, by the number of its threads and of the
// tasks a caller keeps in flight. The root lies under $BENCH_ROOT, or else in the current folder: a file system in
// memory syncs for nothing and tells nothing.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include "clients/directory/DirectoryClient.h"
#include "cloudclientlib/AsyncTask.h"

namespace {

constexpr std::size_t objectSize = 64 * 1024;
constexpr std::size_t folders = 256;

/// A root for one benchmark, deleted in the end.
class CBenchRoot {
public:
    CBenchRoot() {
        const char* base = std::getenv("BENCH_ROOT");  // NOLINT(concurrency-mt-unsafe): before any thread starts
        path_ = std::string(base == nullptr ? "." : base) + "/directory_bench_XXXXXX";
        if (::mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error("cannot create " + path_);
        }
    }
    CBenchRoot(const CBenchRoot&) = delete;
    CBenchRoot& operator=(const CBenchRoot&) = delete;
    ~CBenchRoot() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    [[nodiscard]] const std::string& GetPath() const { return path_; }

private:
    std::string path_;
};

/// The blocks of a store lie in many folders.
std::string PathOf(std::size_t i) { return std::to_string(i % folders) + "/" + std::to_string(i); }

std::shared_ptr<cnt::array_t<char>> Content() {
    auto content = std::make_shared<cnt::array_t<char>>(objectSize);
    unsigned state = 1;
    for (auto& byte : *content) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24U);
    }
    return content;
}

void CountObjects(benchmark::State& state, std::size_t perIteration) {
    const auto objects = static_cast<std::int64_t>(perIteration) * static_cast<std::int64_t>(state.iterations());
    state.SetItemsProcessed(objects);
    state.SetBytesProcessed(objects * static_cast<std::int64_t>(objectSize));
}

/// A root whose folders are there and known to the client, as after the first minute of a backup.
std::shared_ptr<clients::CDirectoryClient> OpenWarm(const CBenchRoot& root, std::size_t threads) {
    auto client = std::make_shared<clients::CDirectoryClient>(root.GetPath(), clients::ERoot::existing, threads);
    for (std::size_t i = 0; i < folders; ++i) {
        client->CreateFolderAsync(std::to_string(i))->Wait();
    }
    return client;
}

void Upload(benchmark::State& state) {
    const CBenchRoot root;
    const auto threads = static_cast<std::size_t>(state.range(0));
    const auto inFlight = static_cast<std::size_t>(state.range(1));
    const auto client = OpenWarm(root, threads);
    const auto content = Content();
    constexpr std::size_t batch = 2000;
    std::size_t next = 0;
    for (auto _ : state) {
        task::RunWindow(
            batch, inFlight, [&](std::size_t) { return client->UploadFileAsync(PathOf(next++), content); },
            [](std::size_t) {});
    }
    CountObjects(state, batch);
}

void Download(benchmark::State& state) {
    const CBenchRoot root;
    const auto threads = static_cast<std::size_t>(state.range(0));
    const auto inFlight = static_cast<std::size_t>(state.range(1));
    const auto client = OpenWarm(root, threads);
    constexpr std::size_t batch = 2000;
    const auto content = Content();
    task::RunWindow(
        batch, 8, [&](std::size_t i) { return client->UploadFileAsync(PathOf(i), content); }, [](std::size_t) {});
    for (auto _ : state) {
        task::RunWindow(
            batch, inFlight,
            [&](std::size_t i) { return client->DownloadFileAsync(PathOf(i), std::make_shared<cnt::array_t<char>>()); },
            [](std::size_t) {});
    }
    CountObjects(state, batch);
}

}  // namespace

BENCHMARK(Upload)
    ->ArgNames({"threads", "in_flight"})
    ->Args({1, 1})
    ->Args({8, 1})
    ->Args({2, 2})
    ->Args({4, 4})
    ->Args({8, 8})
    ->Args({8, 64})
    ->Args({16, 16})
    ->Args({32, 32})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2)
    ->UseRealTime();
BENCHMARK(Download)
    ->ArgNames({"threads", "in_flight"})
    ->Args({8, 1})
    ->Args({8, 8})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

BENCHMARK_MAIN();
