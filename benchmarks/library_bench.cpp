// The library's hot paths: checkpoint documents, block names, the metadata cache under many writers.

#include <benchmark/benchmark.h>
#include <tinyxml.h>

#include <memory>

#include "clients/memory/MemoryClient.h"
#include "cloudbackuplib/CloudBackupSession.h"
#include "cloudbackuplib/CloudCheckpoint.h"
#include "cloudbackuplib/CloudPaths.h"
#include "cloudbackuplib/StgMetaCache.h"
#include "common/digest.h"
#include "common/xml.h"

namespace {

namespace backup = cloudbackuplib::backup;
using backup::checkpoint::CCloudCheckpoint;
using backup::checkpoint::DxrContentFeature;

std::vector<backup::checkpoint::CCloudStorageDescriptor> MakeStorages(std::int64_t storages,
                                                                      std::int64_t partsPerStorage) {
    std::vector<backup::checkpoint::CCloudStorageDescriptor> descriptors;
    for (std::int64_t i = 0; i < storages; ++i) {
        const auto id = guid::guid_t::CreateNew();
        backup::checkpoint::cloud_parts_map_t parts;
        const auto partCount = static_cast<unsigned long>(partsPerStorage);
        for (unsigned long part = 1; part <= partCount; ++part) {
            const unsigned long offset = part * 1048576;
            parts[offset] = {"/set/Metadata/" + id.ToAStr() + ".7_metaparts/" + std::to_string(offset), offset,
                             1048576};
        }
        descriptors.emplace_back(id, id.ToAStr() + ".7", 7, (partCount + 1) * 1048576,
                                 backup::CloudStorageBlockStoreSchema::legacy, parts);
    }
    return descriptors;
}

/// A checkpoint of so many storages with so many parts each.
CCloudCheckpoint MakeCheckpoint(const benchmark::State& state) {
    return {
        MakeStorages(state.range(0), state.range(1)), backup::checkpoint::CCloudDxrDescriptor("content"), {}, {}, 7, 2};
}

std::string Write(const CCloudCheckpoint& checkpoint) {
    auto document = xml::TiXmlCreateDocument();
    auto root = xml::TiXmlCreateChild(document, "Checkpoint");
    checkpoint.Serialize(root, DxrContentFeature::compatible);
    return xml::TiXmlToStr(document);
}

void Sizes(benchmark::internal::Benchmark* bench) {
    bench->Args({10, 100})->Args({1000, 100})->Args({10000, 100})->Args({1000, 1000})->Unit(benchmark::kMillisecond);
}

void CheckpointWrite(benchmark::State& state) {
    const auto checkpoint = MakeCheckpoint(state);
    std::size_t bytes = 0;
    for (auto _ : state) {
        bytes = Write(checkpoint).size();
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(bytes));
}
BENCHMARK(CheckpointWrite)->Apply(Sizes);

void CheckpointRead(benchmark::State& state) {
    const std::string text = Write(MakeCheckpoint(state));
    for (auto _ : state) {
        const auto document = xml::TiXmlParseExc(text);
        const auto root = xml::TiXmlGetChildExc(document, "Checkpoint");
        benchmark::DoNotOptimize(CCloudCheckpoint::Deserialize(root, DxrContentFeature::compatible));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(CheckpointRead)->Apply(Sizes);

/// What of the above is reading the text into a document, our checks of hostile texts included.
void CheckpointParse(benchmark::State& state) {
    const std::string text = Write(MakeCheckpoint(state));
    for (auto _ : state) {
        benchmark::DoNotOptimize(xml::TiXmlParseExc(text));
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(CheckpointParse)->Apply(Sizes);

/// What of the above is TinyXML's alone: the floor.
void CheckpointBareTinyXml(benchmark::State& state) {
    const std::string text = Write(MakeCheckpoint(state));
    for (auto _ : state) {
        TiXmlDocument document;
        document.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
        benchmark::DoNotOptimize(document.RootElement());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}
BENCHMARK(CheckpointBareTinyXml)->Apply(Sizes);

/// A commit that changes nothing in so many storages with so many parts each, over the memory client.
void CommitUnchanged(benchmark::State& state) {
    const auto client = std::make_shared<clients::CMemoryClient>();
    const auto set = backup::CCloudBackup::CreateNew("set", client, client, {}, {});
    backup::SCheckpointCreationParams params;
    params.unchangedStorages = MakeStorages(state.range(0), state.range(1));
    set->CreateCheckpoint(params);
    const auto session = backup::CCloudBackupSession::StartSession(set, set->GetLastCheckpointId(), false);
    for (auto _ : state) {
        session->CreateCheckpoint("content", "");
    }
}
BENCHMARK(CommitUnchanged)->Args({10000, 1})->Args({10000, 10})->Args({1000, 100})->Unit(benchmark::kMillisecond);

void BlockName(benchmark::State& state) {
    const auto digest = digest::Md5(std::string_view("block"));
    for (auto _ : state) {
        benchmark::DoNotOptimize(backup::paths::DigestToBlockName(digest));
    }
}
BENCHMARK(BlockName);

void BlockPath(benchmark::State& state) {
    const auto storage = guid::guid_t::CreateNew();
    const auto name = backup::paths::DigestToBlockName(digest::Md5(std::string_view("block")));
    for (auto _ : state) {
        benchmark::DoNotOptimize(backup::paths::GetBackupBlockPath("set", storage, name));
    }
}
BENCHMARK(BlockPath);

/// A writer's report of eight parts, from eight threads, each with a storage of its own.
class CacheUpdate : public benchmark::Fixture {
public:
    void SetUp(benchmark::State& state) override {
        if (state.thread_index() == 0) {
            cache = std::make_unique<backup::cache::CStgMetaCache>();
            storages.clear();
            for (int i = 0; i < state.threads(); ++i) {
                storages.push_back(guid::guid_t::CreateNew());
                cache->Put(storages.back(), "/some/where", 1);
            }
        }
    }

    std::unique_ptr<backup::cache::CStgMetaCache> cache;
    std::vector<guid::guid_t> storages;
};

BENCHMARK_DEFINE_F(CacheUpdate, EightParts)(benchmark::State& state) {
    backup::parts_map_t parts;
    for (unsigned long part = 1; part <= 8; ++part) {
        parts[part * 1048576].Size = 1048576;
    }
    unsigned long version = 1;
    for (auto _ : state) {
        const auto& storage = storages[static_cast<std::size_t>(state.thread_index())];
        cache->Update(storage, ++version, nullptr, parts, parts, 8192);
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK_REGISTER_F(CacheUpdate, EightParts)->Threads(1)->Threads(8)->UseRealTime();

}  // namespace
