#include <algorithm>

#include "agent/meta/MetaLimits.h"
#include "agent/meta/MetaState.h"
#include "common/exc.h"

namespace agent {

namespace {

/// Finds which chunks the segments need. Each segment costs two binary searches, however many chunks it spans, so that
/// no file is long to check for its size.
class CChunkMarker {
public:
    explicit CChunkMarker(const std::vector<SChunk>& chunks) : chunks_(chunks), steps_(chunks.size() + 1) {
        for (const auto& chunk : chunks) {
            if (runs_.empty() || runs_.back().end != chunk.streamOffset) {
                runs_.push_back({chunk.streamOffset, chunk.streamOffset});
            }
            runs_.back().end += chunk.plainSize;
        }
    }

    void Mark(const SSegment& segment) {
        const auto run = std::partition_point(runs_.begin(), runs_.end(),
                                              [&](const SRun& r) { return r.end <= segment.streamOffset; });
        if (run == runs_.end() || segment.streamOffset < run->begin ||
            !meta::IsWithin(segment.streamOffset, segment.length, run->end)) {
            throw exc::CRuntimeExc("a segment of %1 bytes at stream offset %2 is not covered by chunks", segment.length,
                                   segment.streamOffset);
        }
        ++steps_[FirstAfter(segment.streamOffset) - 1];
        --steps_[FirstAfter(segment.streamOffset + segment.length - 1)];
    }

    [[nodiscard]] std::vector<bool> Finish() const {
        std::vector<bool> used(chunks_.size());
        std::int64_t depth = 0;
        for (std::size_t i = 0; i < chunks_.size(); ++i) {
            depth += steps_[i];
            used[i] = depth > 0;
        }
        return used;
    }

private:
    /// A range of the stream with nothing missing in it.
    struct SRun {
        std::uint64_t begin;
        std::uint64_t end;
    };

    /// The index of the first chunk that begins after the offset.
    [[nodiscard]] std::size_t FirstAfter(std::uint64_t offset) const {
        const auto after = std::partition_point(chunks_.begin(), chunks_.end(),
                                                [&](const SChunk& chunk) { return chunk.streamOffset <= offset; });
        return static_cast<std::size_t>(after - chunks_.begin());
    }

    const std::vector<SChunk>& chunks_;
    std::vector<SRun> runs_;
    std::vector<std::int64_t> steps_;  // where use begins and ends; their sums tell how many segments use a chunk
};

/// Sees to it that every entry lies in a folder. Paths come in the order of a walk, so the folders above an entry are
/// the last ones that were met on the way.
class CFolderCheck {
public:
    void Visit(std::string_view path, EEntryType type) {
        while (!folders_.empty() && (folders_.back() != ParentPath(path) || path.empty())) {
            folders_.pop_back();
        }
        if (folders_.empty() && !path.empty()) {
            throw exc::CRuntimeExc("no folder holds it");
        }
        if (type == EEntryType::directory) {
            folders_.emplace_back(path);
        }
    }

private:
    std::vector<std::string_view> folders_;  // views of the records
};

void CheckHardLink(const CEntryTable& entries, std::string_view path, const std::string& target) {
    const CEntryRef found = entries.Find(target);
    if (found.IsNull() || found.GetEntry().GetType() != EEntryType::file || !SPathLess()(target, path)) {
        throw exc::CRuntimeExc("it is another name of '%1', which is no file that stands before it", target);
    }
}

}  // namespace

SMetaUsage CMetaState::Check() const {
    CChunkMarker marker(chunks_);
    CFolderCheck folders;
    for (const auto& [path, packed] : entries_) {
        try {
            const SEntry entry = packed.Unpack();
            folders.Visit(path, entry.type);
            std::for_each(entry.segments.begin(), entry.segments.end(), [&](const auto& s) { marker.Mark(s); });
            if (entry.type == EEntryType::hardLink) {
                CheckHardLink(entries_, path, entry.target);
            }
        } catch (const exc::CExc& failure) {
            exc::RegenTraceExc(failure, "entry '%1'", path);
        }
    }
    SMetaUsage usage{marker.Finish(), std::vector<bool>(blocks_.size())};
    for (std::size_t i = 0; i < chunks_.size(); ++i) {
        if (usage.chunks[i]) {
            usage.blocks[chunks_[i].block] = true;
        }
    }
    usage.chunkCount = static_cast<std::uint64_t>(std::count(usage.chunks.begin(), usage.chunks.end(), true));
    usage.blockCount = static_cast<std::uint64_t>(std::count(usage.blocks.begin(), usage.blocks.end(), true));
    return usage;
}

}  // namespace agent
