#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <random>
#include <tuple>

#include "agent/meta/MetaFile.h"
#include "agent/meta/MetaTestKit.h"
#include "tests/support/TempDir.h"

/// A model of a source that changes at random, against the file that follows it run by run.
namespace agent {
namespace {

using namespace test_kit;

/// A source's entries, and all chunks that were ever stored with the ids of their blocks.
class CModel {
public:
    using entries_t = std::map<std::string, SEntry, SPathLess>;

    explicit CModel(std::uint64_t seed) : random_(seed) {}

    /// Changes the source and says what the run would hand to the writer. `state` is the metadata before it.
    SMetaChanges Run(const CMetaState& state) {
        const entries_t before = entries_;
        entries_.try_emplace("", MakeFolder());
        SMetaChanges changes;
        blockBase_ = static_cast<std::uint32_t>(state.GetBlocks().size());
        streamEnd_ = state.GetStreamEnd();
        for (std::uint64_t steps = Below(12); steps != 0; --steps) {
            ChangeOne(changes, state);
        }
        DropWhatHangsLoose();
        for (const auto& [path, entry] : before) {
            if (!entries_.contains(path)) {
                changes.removed.insert(path);
            }
        }
        for (const auto& [path, entry] : entries_) {
            const auto old = before.find(path);
            if (old == before.end() || !(old->second == entry)) {
                changes.Put(path, entry);
            }
        }
        return changes;
    }

    [[nodiscard]] const entries_t& GetEntries() const { return entries_; }

    /// Where a file's bytes are stored: block, offset, digest for every chunk that is needed.
    using place_t = std::tuple<std::array<std::uint8_t, 16>, std::uint32_t, digest::sha256_digest_t>;
    [[nodiscard]] std::vector<place_t> PlacesOf(const SEntry& entry) const {
        std::vector<place_t> places;
        for (const auto& segment : entry.segments) {
            for (const auto& [offset, stored] : stored_) {
                const auto& [chunk, block] = stored;
                if (offset < segment.streamOffset + segment.length && offset + chunk.plainSize > segment.streamOffset) {
                    places.emplace_back(block.id, chunk.blockOffset, chunk.sha256);
                }
            }
        }
        return places;
    }

private:
    std::uint64_t Below(std::uint64_t end) { return random_() % end; }

    std::string RandomPath() {
        std::string path;
        for (std::uint64_t depth = Below(4); depth != 0; --depth) {
            path += "ab-\xff"[Below(4)];
            path += "/";
        }
        return path + "xyz"[Below(3)];
    }

    /// Stores chunks for new content and gives its place in the stream.
    std::uint64_t Store(SMetaChanges& changes, std::uint64_t length) {
        const std::uint64_t begin = streamEnd_;
        if (changes.blocks.empty() || Below(4) == 0) {
            changes.blocks.push_back(MakeBlock(random_()));
            blockOffset_ = 0;
        }
        while (streamEnd_ < begin + length) {
            const auto size = static_cast<std::uint32_t>(1 + Below(begin + length - streamEnd_));
            const auto block = blockBase_ + static_cast<std::uint32_t>(changes.blocks.size()) - 1;
            changes.chunks.push_back(MakeChunk(streamEnd_, size, block, blockOffset_));
            stored_[streamEnd_] = {changes.chunks.back(), changes.blocks.back()};
            blockOffset_ += size;
            streamEnd_ += size;
        }
        return begin;
    }

    SEntry RandomFile(SMetaChanges& changes, const CMetaState& state) {
        SEntry file = MakeEntry(EEntryType::file);
        for (std::uint64_t count = Below(4); count != 0; --count) {
            const std::uint64_t length = 1 + Below(1000);
            file.size += Below(2) * 4096;
            file.segments.push_back({file.size, Store(changes, length), length});
            file.size += length;
        }
        if (!state.GetChunks().empty() && Below(3) == 0) {  // bytes that are stored already
            const SChunk& chunk = state.GetChunks()[Below(state.GetChunks().size())];
            file.segments.push_back({file.size, chunk.streamOffset, 1 + Below(chunk.plainSize)});
            file.size += file.segments.back().length;
        }
        if (Below(2) == 0) {
            file.contentSha256 = ShaOf(random_());
        }
        return file;
    }

    SEntry RandomEntry(SMetaChanges& changes, const CMetaState& state) {
        const auto type = static_cast<EEntryType>(1 + Below(7));
        SEntry entry = type == EEntryType::file ? RandomFile(changes, state) : MakeEntry(type);
        entry.mtime = {static_cast<std::int64_t>(random_()), static_cast<std::uint32_t>(Below(1'000'000'000))};
        entry.inode = random_() >> Below(64);
        entry.uid = static_cast<std::uint32_t>(random_());
        entry.recheck = Below(5) == 0;
        if (type == EEntryType::symlink) {
            entry.target = "../" + RandomPath();
        } else if (type == EEntryType::hardLink) {
            entry.target = RandomPath();
        } else if (type == EEntryType::blockDevice) {
            entry.rdev = random_();
        }
        if (Below(4) == 0) {
            entry.xattrs = {{"user.x", std::string(Below(300), 'v')}, {"user.y", ""}};
        }
        return entry;
    }

    void ChangeOne(SMetaChanges& changes, const CMetaState& state) {
        const std::string path = RandomPath();
        if (Below(3) == 0) {
            entries_.erase(path);
            return;
        }
        for (auto parent = std::string(ParentPath(path)); !parent.empty(); parent = ParentPath(parent)) {
            entries_.try_emplace(parent, MakeFolder());
        }
        entries_[path] = RandomEntry(changes, state);
    }

    /// Removes what lies in no folder and hard links to what is no file before them.
    void DropWhatHangsLoose() {
        const auto isOf = [&](std::string_view path, EEntryType type) {
            const auto found = entries_.find(path);
            return found != entries_.end() && found->second.type == type;
        };
        std::erase_if(entries_, [&](const auto& item) {
            const auto& [path, entry] = item;
            const bool hasFolder = path.empty() || isOf(ParentPath(path), EEntryType::directory);
            return !hasFolder || (entry.type == EEntryType::hardLink &&
                                  !(isOf(entry.target, EEntryType::file) && SPathLess()(entry.target, path)));
        });
    }

    std::mt19937_64 random_;
    entries_t entries_;
    std::map<std::uint64_t, std::pair<SChunk, SBlockExternalId>> stored_;  // by stream offset
    std::uint32_t blockBase_ = 0;
    std::uint32_t blockOffset_ = 0;
    std::uint64_t streamEnd_ = 0;
};

CModel::entries_t UnpackedEntries(const CMetaState& state) {
    CModel::entries_t entries;
    for (const auto& [path, packed] : state.GetEntries()) {
        entries.emplace(path, packed.Unpack());
    }
    return entries;
}

std::vector<CModel::place_t> PlacesOf(const CMetaState& state, const SEntry& entry) {
    std::vector<CModel::place_t> places;
    for (const auto& segment : entry.segments) {
        for (const auto& chunk : state.FindChunks(segment.streamOffset, segment.length)) {
            places.emplace_back(state.GetBlocks().at(chunk.block).id, chunk.blockOffset, chunk.sha256);
        }
    }
    return places;
}

void AssertEqual(const CModel& model, const CMetaState& state) {
    RC_ASSERT(UnpackedEntries(state) == model.GetEntries());
    for (const auto& [path, entry] : model.GetEntries()) {
        RC_ASSERT(PlacesOf(state, entry) == model.PlacesOf(entry));
    }
}

RC_GTEST_PROP(MetaProperty, EveryVersionReadsAsTheSourceWas, (std::uint64_t seed)) {
    const test::TempDir dir;
    CModel model(seed);
    CMetaState state;
    std::optional<std::string> old;
    for (std::uint64_t version = 1; version <= 12; ++version) {
        const std::string path = dir / std::to_string(version);
        const SMetaLayout layout = WriteMeta({old, path, storageId, version}, state, model.Run(state));
        RC_ASSERT(IsIntact(path, version));
        SMeta meta = ReadMeta(path);
        RC_ASSERT(meta.state == state);
        AssertEqual(model, meta.state);
        RC_ASSERT(layout.banks.size() == meta.header.banks.size());
        if (seed % 2 == 0) {  // a process that lives on, or a new one for each run
            state = std::move(meta.state);
        }
        old = path;
        if (seed % 3 == 0 && version % 4 == 0) {  // the next file is written anew
            old.reset();
        }
    }
}

}  // namespace
}  // namespace agent
