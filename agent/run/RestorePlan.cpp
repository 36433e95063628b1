#include "agent/run/RestorePlan.h"

#include <algorithm>
#include <array>
#include <map>
#include <unordered_map>
#include <unordered_set>

namespace agent {

namespace {

using wanted_t = SRestorePlan::SWanted;

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
    CPlanner(const CMetaState& state, const CRestoreFilter& filter, const std::string& base, IExistingItems* existing)
        : state_(state), filter_(filter), base_(base), existing_(existing), wantedOfChunk_(state.GetChunks().size()) {}

    SRestorePlan Run() {
        for (const CEntryRef item : state_.GetEntries()) {
            const std::string path(item.GetPath());
            const CPackedView packed = item.GetEntry();
            LeaveFolders(path);
            const bool isFolder = packed.GetType() == EEntryType::directory;
            const bool isTaken = filter_.Takes(path, isFolder);
            if (isFolder && IsPathAtOrUnder(path, base_)) {
                open_.push_back({{item, packed}, isTaken});
            }
            if (isTaken) {
                PutFolders();
                AddEntry(item, path);
            }
        }
        PutWanted();
        return std::move(plan_);
    }

private:
    /// Folders that lead to where the walk is; they are planned when something in them is.
    void LeaveFolders(const std::string& path) {
        while (!open_.empty() && !IsPathAtOrUnder(path, open_.back().name.GetPath())) {
            open_.pop_back();
            put_ = std::min(put_, open_.size());
        }
    }

    void PutFolders() {
        for (; put_ < open_.size(); ++put_) {
            SRestorePlan::SFolder folder = open_[put_];
            std::vector<SRestorePlan::SLocalRange> none;
            folder.planned = Judge(folder.GetPath(), folder.entry.Unpack(), {}, none);
            plan_.folders.push_back(folder);
        }
    }

    void AddEntry(CEntryRef item, const std::string& path) {
        const CPackedView packed = item.GetEntry();
        const EEntryType type = packed.GetType();
        if (type == EEntryType::directory) {
            return;
        }
        const SEntry entry = packed.Unpack();
        if (type == EEntryType::file) {
            AddFile(item, packed, entry);
        } else if (type == EEntryType::hardLink) {
            AddHardLink(item, entry);
        } else {
            std::vector<SRestorePlan::SLocalRange> none;
            const SRestorePlan::SItem planned{item, packed, Judge(path, entry, {}, none)};
            (planned.planned == EPlanned::keep ? plan_.kept : plan_.others).push_back(planned);
            DropSkipped(plan_.others);
        }
    }

    template <class Items>
    void DropSkipped(Items& items) {
        if (!items.empty() && items.back().planned == EPlanned::skip) {
            items.pop_back();
            ++plan_.skipped;
        }
    }

    /// The first name of a file that is restored gets the content, also when the file had another name before, and when
    /// that name stays with another file that stands there.
    void AddHardLink(CEntryRef item, const SEntry& entry) {
        const CEntryRef original = state_.GetEntries().Find(entry.target);
        if (original.IsNull() || original.GetEntry().GetType() != EEntryType::file) {
            SRestorePlan::SHardLink broken;
            broken.name = item;
            broken.entry = item.GetEntry();
            plan_.hardLinks.push_back(broken);
            return;
        }
        const CEntryRef first = FindFirstName(original);
        if (first.IsNull()) {
            if (AddFile(item, original.GetEntry(), original.GetEntry().Unpack()) != EPlanned::skip) {
                firstNames_.emplace(original.GetId(), item);
            }
            return;
        }
        std::vector<SRestorePlan::SLocalRange> none;
        SRestorePlan::SHardLink link;
        link.name = item;
        link.entry = item.GetEntry();
        link.existing = first;
        SEntry asFile = entry;  // it is as old as the file
        asFile.mtime = original.GetEntry().Unpack().mtime;
        link.planned = Judge(link.GetPath(), asFile, {}, none);
        plan_.hardLinks.push_back(link);
        DropSkipped(plan_.hardLinks);
    }

    /// The name that has the content of that file; null when none has it yet.
    [[nodiscard]] CEntryRef FindFirstName(CEntryRef original) const {
        const auto first = firstNames_.find(original.GetId());
        if (first != firstNames_.end()) {
            return first->second;
        }
        const bool isHere =
            filter_.Takes(std::string(original.GetPath()), false) && !foreign_.contains(original.GetId());
        return isHere ? original : CEntryRef();
    }

    EPlanned AddFile(CEntryRef name, CPackedView packed, const SEntry& entry) {
        SRestorePlan::SFile file;
        file.name = name;
        file.entry = packed;
        const std::string path = file.GetPath();
        file.size = entry.size;
        const std::size_t index = plan_.files.size();
        std::vector<wanted_t> pieces = PiecesOf(index, entry);
        std::vector<SRestorePlan::SLocalRange> local;
        file.planned = Judge(path, entry, pieces, local);
        const EPlanned planned = file.planned;
        if (planned == EPlanned::skip) {
            ++plan_.skipped;
            if (!existing_->IsSameFile(path, entry)) {
                foreign_.insert(name.GetId());
            }
        } else if (planned == EPlanned::keep) {
            plan_.kept.push_back(file);
        } else {
            plan_.files.push_back(file);
            if (!local.empty()) {
                plan_.local.emplace(index, std::move(local));
            }
            AddPieces(index, entry, std::move(pieces));
        }
        return planned;
    }

    void AddPieces(std::size_t index, const SEntry& entry, std::vector<wanted_t> pieces) {
        const bool isOnePiece = pieces.size() == 1 && pieces[0].pieces.size() == 1 && entry.size <= smallFileSize;
        if (!isOnePiece && !pieces.empty()) {
            const auto [first, isFirst] = firstOfPlaces_.emplace(PlacesOf(entry), index);
            if (!isFirst) {
                plan_.local.erase(index);
                plan_.copies.push_back({index, first->second});
                return;
            }
        }
        for (auto& wanted : pieces) {
            auto& slot = wantedOfChunk_[static_cast<std::size_t>(wanted.chunk - state_.GetChunks().data())];
            const auto isHere = [&](const SRestorePlan::SPiece& piece) { return IsLocal(index, piece); };
            if (std::all_of(wanted.pieces.begin(), wanted.pieces.end(), isHere)) {
                continue;
            }
            plan_.files[index].pieces += static_cast<std::uint32_t>(wanted.pieces.size());
            slot.insert(slot.end(), wanted.pieces.begin(), wanted.pieces.end());
        }
    }

    [[nodiscard]] bool IsLocal(std::size_t index, const SRestorePlan::SPiece& piece) const {
        const auto local = plan_.GetLocal(index);
        const auto after = std::upper_bound(local.begin(), local.end(), piece.fileOffset,
                                            [](std::uint64_t at, const auto& range) { return at < range.offset; });
        return after != local.begin() && std::prev(after)->offset == piece.fileOffset &&
               std::prev(after)->length == piece.length;
    }

    /// By chunk, what of it goes where in the file.
    [[nodiscard]] std::vector<wanted_t> PiecesOf(std::size_t index, const SEntry& entry) const {
        std::vector<wanted_t> pieces;
        for (const auto& segment : entry.segments) {
            const std::uint64_t segmentEnd = segment.streamOffset + segment.length;
            for (const auto& chunk : state_.FindChunks(segment.streamOffset, segment.length)) {
                const std::uint64_t begin = std::max(segment.streamOffset, chunk.streamOffset);
                const std::uint64_t end = std::min(segmentEnd, chunk.streamOffset + chunk.plainSize);
                if (pieces.empty() || pieces.back().chunk != &chunk) {
                    pieces.push_back({&chunk, {}});
                }
                pieces.back().pieces.push_back({index, segment.fileOffset + (begin - segment.streamOffset),
                                                static_cast<std::uint32_t>(begin - chunk.streamOffset),
                                                static_cast<std::uint32_t>(end - begin)});
            }
        }
        return pieces;
    }

    void PutWanted() {
        for (std::size_t i = 0; i < wantedOfChunk_.size(); ++i) {
            if (!wantedOfChunk_[i].empty()) {
                plan_.wanted.push_back({&state_.GetChunks()[i], std::move(wantedOfChunk_[i])});
            }
        }
    }

    EPlanned Judge(const std::string& path, const SEntry& entry, const std::vector<wanted_t>& pieces,
                   std::vector<SRestorePlan::SLocalRange>& local) {
        return existing_ == nullptr ? EPlanned::create : existing_->Judge(path, entry, pieces, local);
    }

    const CMetaState& state_;
    const CRestoreFilter& filter_;
    const std::string& base_;
    IExistingItems* const existing_;
    SRestorePlan plan_;
    std::vector<SRestorePlan::SFolder> open_;
    std::size_t put_ = 0;  // so many of open_ are planned
    std::vector<std::vector<SRestorePlan::SPiece>> wantedOfChunk_;
    std::map<places_t, std::size_t> firstOfPlaces_;
    std::unordered_map<const void*, CEntryRef> firstNames_;
    std::unordered_set<const void*> foreign_;  // names that stay with other files
};

}  // namespace

SRestorePlan MakeRestorePlan(const CMetaState& state, const CRestoreFilter& filter, const std::string& base,
                             IExistingItems* existing) {
    return CPlanner(state, filter, base, existing).Run();
}

std::uint64_t SRestorePlan::GetStoredBytes() const {
    std::uint64_t sum = 0;
    for (const auto& one : wanted) {
        sum += one.chunk->storedSize;
    }
    return sum;
}

std::span<const SRestorePlan::SLocalRange> SRestorePlan::GetLocal(std::size_t file) const {
    const auto found = local.find(file);
    return found == local.end() ? std::span<const SLocalRange>() : found->second;
}

std::uint64_t SRestorePlan::GetBytes() const {
    std::uint64_t sum = 0;
    for (const auto& file : files) {
        sum += file.size;
    }
    return sum;
}

}  // namespace agent
