#include "agent/look/FileContentReader.h"

#include <algorithm>
#include <array>
#include <vector>

#include "agent/chunk/ChunkReader.h"
#include "common/exc.h"

namespace agent {

namespace {

class CContentReader : private IChunkSink {
public:
    CContentReader(const CMetaState& state, const SEntry& file, const content_sink_t& sink) : file_(file), sink_(sink) {
        for (const auto& segment : file.segments) {
            AddSegment(state, segment);
        }
    }

    void Run(const SChunkSource& source) {
        CChunkReader(source).Read(chunks_, *this);
        WriteZeros(file_.size);
    }

private:
    /// What of a chunk goes where.
    struct SPiece {
        std::uint64_t fileOffset;
        std::size_t chunkOffset;
        std::size_t length;
    };

    void AddSegment(const CMetaState& state, const SSegment& segment) {
        const std::uint64_t segmentEnd = segment.streamOffset + segment.length;
        for (const auto& chunk : state.FindChunks(segment.streamOffset, segment.length)) {
            const std::uint64_t begin = std::max(segment.streamOffset, chunk.streamOffset);
            const std::uint64_t end = std::min(segmentEnd, chunk.streamOffset + chunk.plainSize);
            chunks_.push_back(chunk);
            pieces_.push_back(
                {segment.fileOffset + (begin - segment.streamOffset), begin - chunk.streamOffset, end - begin});
        }
    }

    void OnChunk(std::size_t index, std::span<const char> plain) override {
        const SPiece& piece = pieces_[index];
        WriteZeros(piece.fileOffset);
        sink_(plain.subspan(piece.chunkOffset, piece.length));
        written_ += piece.length;
    }

    void OnDamagedChunk(std::size_t /*index*/, const std::exception& reason) override {
        exc::RegenTraceExc(reason, "The content cannot be read from byte %1 on", written_);
    }

    void WriteZeros(std::uint64_t end) {
        static constexpr std::array<char, 65536> zeros{};
        while (written_ < end) {
            const std::size_t count = std::min<std::uint64_t>(end - written_, zeros.size());
            sink_(std::span(zeros).first(count));
            written_ += count;
        }
    }

    const SEntry& file_;
    const content_sink_t& sink_;
    std::vector<SChunk> chunks_;
    std::vector<SPiece> pieces_;  // by chunk
    std::uint64_t written_ = 0;
};

}  // namespace

void ReadFileContent(const SChunkSource& source, const CMetaState& state, const SEntry& file,
                     const content_sink_t& sink) {
    CContentReader(state, file, sink).Run(source);
}

}  // namespace agent
