// Writing and reading the metadata file of a source with 50,000 and with 1,000,000 entries: a first backup, a run that
// finds one file in a thousand changed, reading it all, looking whether the file is intact.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "agent/meta/MetaFile.h"
#include "agent/meta/SyntheticTree.h"
#include "common/util.h"

namespace {

using namespace agent;

const guid::guid_t storageId = guid::guid_t::FromStr("01234567-89ab-cdef-0123-456789abcdef");

/// A folder of its own, removed at the end.
class CFolder {
public:
    CFolder() : path_((std::filesystem::temp_directory_path() / "meta_bench.XXXXXX").string()) {
        if (::mkdtemp(path_.data()) == nullptr) {
            std::abort();
        }
    }
    CFolder(const CFolder&) = delete;
    CFolder& operator=(const CFolder&) = delete;
    ~CFolder() { std::filesystem::remove_all(path_); }

    [[nodiscard]] std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

/// The first version of a source, in the folder as "1".
CMetaState WriteFirst(const CFolder& folder, std::uint64_t count) {
    CMetaState state;
    WriteMeta({std::nullopt, folder / "1", storageId, 1}, state, test_kit::SyntheticTree(count));
    return state;
}

void WriteWhole(benchmark::State& run) {
    const CFolder folder;
    const auto count = static_cast<std::uint64_t>(run.range(0));
    const SMetaChanges changes = test_kit::SyntheticTree(count);
    for ([[maybe_unused]] auto step : run) {
        run.PauseTiming();
        CMetaState state;
        SMetaChanges copy = changes;
        run.ResumeTiming();
        WriteMeta({std::nullopt, folder / "1", storageId, 1}, state, std::move(copy));
        run.PauseTiming();
        state = CMetaState();
        run.ResumeTiming();
    }
    run.counters["file"] = static_cast<double>(util::fs_file_size(folder / "1"));
    run.counters["entries/s"] =
        benchmark::Counter(static_cast<double>(count), benchmark::Counter::kIsIterationInvariantRate);
}

void AppendChanges(benchmark::State& run) {
    const CFolder folder;
    const CMetaState first = WriteFirst(folder, static_cast<std::uint64_t>(run.range(0)));
    SMetaChanges changes;
    std::uint64_t number = 0;
    for (const auto& [path, packed] : first.GetEntries()) {
        if (++number % 1000 == 0) {
            SEntry entry = packed.Unpack();
            ++entry.mtime.seconds;
            changes.Put(std::string(path), entry);
        }
    }
    std::uint64_t added = 0;
    for ([[maybe_unused]] auto step : run) {
        run.PauseTiming();
        CMetaState state = first;
        run.ResumeTiming();
        const SMetaLayout layout = WriteMeta({folder / "1", folder / "2", storageId, 2}, state, changes);
        added = layout.banks.back().size;
        run.PauseTiming();
        state = CMetaState();
        run.ResumeTiming();
    }
    run.counters["added"] = static_cast<double>(added);
}

void ReadWhole(benchmark::State& run) {
    const CFolder folder;
    static_cast<void>(WriteFirst(folder, static_cast<std::uint64_t>(run.range(0))));
    for ([[maybe_unused]] auto step : run) {
        SMeta meta = ReadMeta(folder / "1");
        benchmark::DoNotOptimize(meta);
        run.PauseTiming();
        meta = SMeta();
        run.ResumeTiming();
    }
    run.counters["entries/s"] =
        benchmark::Counter(static_cast<double>(run.range(0)), benchmark::Counter::kIsIterationInvariantRate);
}

void CheckIntact(benchmark::State& run) {
    const CFolder folder;
    static_cast<void>(WriteFirst(folder, static_cast<std::uint64_t>(run.range(0))));
    for ([[maybe_unused]] auto step : run) {
        benchmark::DoNotOptimize(IsIntact(folder / "1", 1));
    }
}

BENCHMARK(WriteWhole)->Arg(50'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(AppendChanges)->Arg(50'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(ReadWhole)->Arg(50'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);
BENCHMARK(CheckIntact)->Arg(50'000)->Arg(1'000'000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
