// Clearing orphaned blocks in a store of a million blocks: the time and the peak memory of the operation, and of other
// ways to keep the names that it lists. The client lists names that it generates and deletes nothing.

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <new>
#include <set>

#include "clients/memory/MemoryClient.h"
#include "cloudbackuplib/CloudBackup.h"
#include "cloudbackuplib/CloudPaths.h"
#include "cloudclientlib/wrappers/ForwardingClient.h"

namespace {

/// Bytes on the heap, as the allocator rounds them.
std::atomic<std::size_t> heapNow{0};
std::atomic<std::size_t> heapPeak{0};

void* Allocate(std::size_t size) {
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    const std::size_t now = heapNow += malloc_usable_size(memory) + sizeof(std::size_t);
    heapPeak = std::max<std::size_t>(heapPeak, now);
    return memory;
}

void Release(void* memory) noexcept {
    if (memory != nullptr) {
        heapNow -= malloc_usable_size(memory) + sizeof(std::size_t);
        std::free(memory);
    }
}

}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void operator delete(void* memory) noexcept { Release(memory); }
void operator delete[](void* memory) noexcept { Release(memory); }
void operator delete(void* memory, std::size_t) noexcept { Release(memory); }
void operator delete[](void* memory, std::size_t) noexcept { Release(memory); }

namespace {

namespace backup = cloudbackuplib::backup;
using digest::md5_digest_t;
using digests_t = std::vector<md5_digest_t>;

constexpr std::size_t subfolders = 256;
constexpr std::size_t blocksOfSubfolder = 3907;  // a million in all

/// The digest of one block: its subfolder, then bytes that look like chance and are the same at every run.
md5_digest_t BlockDigest(std::size_t subfolder, std::size_t block) {
    md5_digest_t digest;
    std::uint64_t state = subfolder * blocksOfSubfolder + block;
    for (auto& byte : digest.bytes) {
        state = (state ^ (state >> 29U)) * 0xBF58476D1CE4E5B9U + 0x9E3779B97F4A7C15U;
        byte = static_cast<std::uint8_t>(state >> 56U);
    }
    digest.bytes.front() = static_cast<std::uint8_t>(subfolder);
    return digest;
}

/// Lists the blocks of the subfolder that the path ends with, in no order, as a file system does.
class CListingClient : public cloudclientlib::CForwardingClient {
public:
    CListingClient() : CForwardingClient(std::make_shared<clients::CMemoryClient>()) {}

    std::vector<cloudclientlib::SCloudObjectInfo> QueryFolder(const std::string& path) override {
        const std::size_t subfolder = std::stoul(path.substr(path.size() - 2), nullptr, 16);
        std::vector<cloudclientlib::SCloudObjectInfo> entries(blocksOfSubfolder);
        for (std::size_t block = 0; block < entries.size(); ++block) {
            entries[block].name = BlockDigest(subfolder, block).ToAStr();
        }
        return entries;
    }
    task::task_ptr DeleteFileAsync(const std::string&) override {
        ++deleted_;
        return task::RunNow([] {});
    }
    [[nodiscard]] std::size_t GetDeleted() const { return deleted_; }

private:
    std::size_t deleted_ = 0;
};

/// Every block but one in a hundred, or none.
digests_t InUse(bool most) {
    digests_t digests;
    for (std::size_t subfolder = 0; most && subfolder < subfolders; ++subfolder) {
        for (std::size_t block = 0; block < blocksOfSubfolder; ++block) {
            if (block % 100 != 0) {
                digests.push_back(BlockDigest(subfolder, block));
            }
        }
    }
    std::sort(digests.begin(), digests.end());
    return digests;
}

template <class Take>
void ForEachName(cloudclientlib::ICloudClient& client, const Take& take) {
    for (const auto& subfolder : backup::paths::EnumCloudBlockSubfolders("set", {})) {
        for (const auto& entry : client.QueryFolder(subfolder)) {
            take(entry.name);
        }
    }
}

/// Nothing is kept: what listing costs by itself.
std::size_t ListOnly(const std::shared_ptr<CListingClient>& client, const digests_t&) {
    std::size_t names = 0;
    ForEachName(*client, [&](const std::string&) { ++names; });
    return names;
}

/// The first way: all names as strings in a set, copied to be deleted.
std::size_t SetOfStrings(const std::shared_ptr<CListingClient>& client, const digests_t& inUse) {
    std::set<std::string> names;
    ForEachName(*client, [&](const std::string& name) { names.insert(name); });
    for (const auto& digest : inUse) {
        names.erase(backup::paths::DigestToBlockName(digest));
    }
    for (const auto& name : std::vector<std::string>(names.begin(), names.end())) {
        client->DeleteFileAsync(backup::paths::GetBackupBlockPath("set", {}, name))->Wait();
    }
    return names.size();
}

std::size_t SortedStrings(const std::shared_ptr<CListingClient>& client, const digests_t& inUse) {
    std::vector<std::string> names;
    ForEachName(*client, [&](const std::string& name) { names.push_back(name); });
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    std::vector<bool> used(names.size());
    for (const auto& digest : inUse) {
        const std::string name = backup::paths::DigestToBlockName(digest);
        const auto found = std::lower_bound(names.begin(), names.end(), name);
        if (found != names.end() && *found == name) {
            used[static_cast<std::size_t>(found - names.begin())] = true;
        }
    }
    std::size_t orphans = 0;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (!used[i]) {
            client->DeleteFileAsync(backup::paths::GetBackupBlockPath("set", {}, names[i]))->Wait();
            ++orphans;
        }
    }
    return orphans;
}

/// The library's own way.
std::size_t Operation(const std::shared_ptr<CListingClient>& client, const digests_t& inUse) {
    backup::CCloudBackup("set", {}, {}, client, client, 0, backup::ErrorHandling::fail).ClearOrphanedBlocks({}, inUse);
    return client->GetDeleted();
}

using way_t = std::size_t (*)(const std::shared_ptr<CListingClient>&, const digests_t&);

void ClearOrphans(benchmark::State& state, way_t way) {
    const digests_t inUse = InUse(state.range(0) != 0);
    std::size_t peak = 0;
    std::size_t orphans = 0;
    for (auto _ : state) {
        const auto client = std::make_shared<CListingClient>();
        const std::size_t before = heapNow;
        heapPeak = before;
        orphans = way(client, inUse);
        peak = heapPeak - before;
    }
    state.counters["peak_MiB"] = static_cast<double>(peak) / 1048576;
    state.counters["orphans"] = static_cast<double>(orphans);
}
void MostInUseAndNone(benchmark::internal::Benchmark* one) {
    one->ArgName("most_in_use")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);
}
BENCHMARK_CAPTURE(ClearOrphans, list_only, ListOnly)->Apply(MostInUseAndNone);
BENCHMARK_CAPTURE(ClearOrphans, set_of_strings, SetOfStrings)->Apply(MostInUseAndNone);
BENCHMARK_CAPTURE(ClearOrphans, sorted_strings, SortedStrings)->Apply(MostInUseAndNone);
BENCHMARK_CAPTURE(ClearOrphans, operation, Operation)->Apply(MostInUseAndNone);

}  // namespace
