#include "agent/look/StateDiff.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "agent/run/SetDocument.h"

namespace agent {

namespace {

void AppendNumber(std::string& text, std::uint64_t number) {
    for (int i = 0; i < 8; ++i) {
        text += static_cast<char>(number >> (8 * i));
    }
}

/// Bytes of a file that lie one behind the other in one chunk.
struct SPiece {
    std::uint64_t fileOffset;
    std::uint64_t chunkOffset;
    std::uint64_t length;
    const SChunk* chunk;
};

/// Pieces of a chunk that follow each other are one, however the segments divide them.
std::vector<SPiece> PiecesOf(const CMetaState& state, const SEntry& file) {
    std::vector<SPiece> pieces;
    for (const auto& segment : file.segments) {
        const std::uint64_t segmentEnd = segment.streamOffset + segment.length;
        for (const auto& chunk : state.FindChunks(segment.streamOffset, segment.length)) {
            const std::uint64_t begin = std::max(segment.streamOffset, chunk.streamOffset);
            const std::uint64_t end = std::min(segmentEnd, chunk.streamOffset + chunk.plainSize);
            const SPiece piece{segment.fileOffset + (begin - segment.streamOffset), begin - chunk.streamOffset,
                               end - begin, &chunk};
            const bool goesOn = !pieces.empty() && pieces.back().chunk == &chunk &&
                                pieces.back().fileOffset + pieces.back().length == piece.fileOffset &&
                                pieces.back().chunkOffset + pieces.back().length == piece.chunkOffset;
            if (goesOn) {
                pieces.back().length += piece.length;
            } else {
                pieces.push_back(piece);
            }
        }
    }
    return pieces;
}

class CStateDiff {
public:
    CStateDiff(const CMetaState& before, const CMetaState& after, const std::function<void(const SDifference&)>& sink)
        : before_(before), after_(after), sink_(sink) {}

    void Run(const std::string& path) {
        const CEntryRange left = before_.EntriesAt(path);
        const CEntryRange right = after_.EntriesAt(path);
        auto a = left.begin();
        auto b = right.begin();
        while (a != left.end() || b != right.end()) {
            if (b == right.end() || (a != left.end() && SPathLess()(a->GetPath(), b->GetPath()))) {
                sink_({EDifference::removed, std::string(a->GetPath()), a->GetEntry().Unpack(), std::nullopt});
                ++a;
            } else if (a == left.end() || SPathLess()(b->GetPath(), a->GetPath())) {
                sink_({EDifference::added, std::string(b->GetPath()), std::nullopt, b->GetEntry().Unpack()});
                ++b;
            } else {
                Compare(std::string(a->GetPath()), a->GetEntry().Unpack(), b->GetEntry().Unpack());
                ++a;
                ++b;
            }
        }
    }

private:
    void Compare(const std::string& path, SEntry before, SEntry after) {
        if (!IsSame(before, after)) {
            sink_({EDifference::modified, path, std::move(before), std::move(after)});
        } else if (!DescribeAttributes(before, after).empty()) {
            sink_({EDifference::attributes, path, std::move(before), std::move(after)});
        }
    }

    bool IsSame(const SEntry& before, const SEntry& after) const {
        return before.type == after.type && before.target == after.target && before.rdev == after.rdev &&
               before.size == after.size && ContentKey(before_, before) == ContentKey(after_, after);
    }

    const CMetaState& before_;
    const CMetaState& after_;
    const std::function<void(const SDifference&)>& sink_;
};

std::string OctalMode(std::uint32_t mode) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04o", mode);
    return text.data();
}

std::string ExactTime(const STime& time) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), ".%09uZ", time.nanoseconds % 1'000'000'000U);
    std::string iso = ToIsoText(time);
    iso.pop_back();
    return time.nanoseconds == 0 ? iso + "Z" : iso + text.data();
}

}  // namespace

digest::sha256_digest_t ContentKey(const CMetaState& state, const SEntry& file) {
    if (file.contentSha256) {
        return *file.contentSha256;
    }
    std::string text;
    AppendNumber(text, file.size);
    for (const auto& piece : PiecesOf(state, file)) {
        AppendNumber(text, piece.fileOffset);
        AppendNumber(text, piece.chunkOffset);
        AppendNumber(text, piece.length);
        text.append(piece.chunk->sha256.bytes.begin(), piece.chunk->sha256.bytes.end());
    }
    return digest::Sha256(text);
}

void DiffStates(const CMetaState& before, const CMetaState& after, const std::string& path,
                const std::function<void(const SDifference&)>& sink) {
    CStateDiff(before, after, sink).Run(path);
}

std::vector<std::string> DescribeAttributes(const SEntry& before, const SEntry& after) {
    if (after.type == EEntryType::hardLink) {
        return {};  // all of it is the file's
    }
    std::vector<std::string> texts;
    const auto owner = [](const SEntry& entry) { return std::to_string(entry.uid) + ":" + std::to_string(entry.gid); };
    if (before.mode != after.mode) {
        texts.push_back("mode " + OctalMode(before.mode) + " -> " + OctalMode(after.mode));
    }
    if (owner(before) != owner(after)) {
        texts.push_back("owner " + owner(before) + " -> " + owner(after));
    }
    if (before.mtime != after.mtime) {
        texts.push_back("modified " + ExactTime(before.mtime) + " -> " + ExactTime(after.mtime));
    }
    if (before.xattrs != after.xattrs) {
        texts.emplace_back("xattrs");
    }
    return texts;
}

}  // namespace agent
