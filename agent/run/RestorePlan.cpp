#include "agent/run/RestorePlan.h"

#include <algorithm>
#include <map>

namespace agent {

namespace {

/// Files by where their content lies, to tell copies: the same places make the same content.
using places_t = std::vector<std::array<std::uint64_t, 3>>;

places_t PlacesOf(const SEntry& entry) {
    places_t places;
    places.push_back({entry.size, 0, 0});
    for (const auto& segment : entry.segments) {
        places.push_back({segment.fileOffset, segment.streamOffset, segment.length});
    }
    return places;
}

class CPlanner {
public:
    explicit CPlanner(const CMetaState& state) : state_(state) {}

    SRestorePlan Run() {
        for (const auto& [path, packed] : state_.GetEntries()) {
            AddEntry(path, packed.Unpack());
        }
        for (auto& [streamOffset, wanted] : wanted_) {
            plan_.wanted.push_back(std::move(wanted));
        }
        return std::move(plan_);
    }

private:
    void AddEntry(const std::string& path, SEntry entry) {
        if (entry.type == EEntryType::directory) {
            plan_.folders.emplace_back(path, std::move(entry));
        } else if (entry.type == EEntryType::file) {
            AddFile(path, std::move(entry));
        } else {
            plan_.others.emplace_back(path, std::move(entry));
        }
    }

    void AddFile(const std::string& path, SEntry entry) {
        const std::size_t index = plan_.files.size();
        plan_.files.push_back({path, std::move(entry), 0});
        auto& file = plan_.files.back();
        if (file.entry.segments.empty()) {
            return;
        }
        const auto [first, isFirst] = firstOfPlaces_.emplace(PlacesOf(file.entry), index);
        if (!isFirst) {
            plan_.copies.push_back({index, first->second});
            return;
        }
        for (const auto& segment : file.entry.segments) {
            AddSegment(index, segment);
        }
    }

    void AddSegment(std::size_t file, const SSegment& segment) {
        const std::uint64_t segmentEnd = segment.streamOffset + segment.length;
        for (const auto& chunk : state_.FindChunks(segment.streamOffset, segment.length)) {
            const std::uint64_t begin = std::max(segment.streamOffset, chunk.streamOffset);
            const std::uint64_t end = std::min(segmentEnd, chunk.streamOffset + chunk.plainSize);
            auto& wanted = wanted_.try_emplace(chunk.streamOffset, SRestorePlan::SWanted{chunk, {}}).first->second;
            wanted.pieces.push_back({file, segment.fileOffset + (begin - segment.streamOffset),
                                     static_cast<std::uint32_t>(begin - chunk.streamOffset),
                                     static_cast<std::uint32_t>(end - begin)});
            ++plan_.files[file].pieces;
        }
    }

    const CMetaState& state_;
    SRestorePlan plan_;
    std::map<std::uint64_t, SRestorePlan::SWanted> wanted_;
    std::map<places_t, std::size_t> firstOfPlaces_;
};

}  // namespace

SRestorePlan MakeRestorePlan(const CMetaState& state) { return CPlanner(state).Run(); }

}  // namespace agent
