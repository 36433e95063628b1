#include "agent/meta/Records.h"

#include <algorithm>
#include <limits>

#include "agent/meta/ByteCodec.h"
#include "common/exc.h"
#include "common/stream.h"

namespace agent::meta {

namespace {

constexpr std::size_t blockSize = 44;
/// Type, fields, mode, owner, group, two times of two numbers, device, inode: a byte each at least. So a file cannot
/// make its reader hold entries that are not there.
constexpr std::size_t minEntrySize = 11;

void PutKind(std::string& out, ERecord kind) { out += static_cast<char>(kind); }

SBlockExternalId GetBlock(CByteCursor& cursor) {
    const std::string_view bytes = cursor.Bytes(blockSize);
    io::mem_stream_tt<> stream(cnt::array_t<char>(bytes.begin(), bytes.end()));
    SBlockExternalId block;
    SBlockExternalId::Unserial(stream, block);
    return block;
}

void ReplayPut(CByteCursor& cursor, CMetaState& state) {
    const std::string_view path = cursor.Counted();
    const std::string_view entry = cursor.Counted();
    if (entry.size() < minEntrySize) {
        throw exc::CRuntimeExc("entry '%1' has only %2 bytes", path, entry.size());
    }
    state.PutEntry(path, CPackedView::FromBytes(entry));
}

void ReplayRecord(CByteCursor& cursor, CMetaState& state, CChunkBase& base) {
    const auto kind = static_cast<ERecord>(cursor.Byte());
    switch (kind) {
        case ERecord::block:
            state.AddBlock(GetBlock(cursor));
            return;
        case ERecord::chunk: {
            const SChunk chunk = base.Decode(cursor);
            state.AddChunk(chunk);
            base.Follow(chunk);
            return;
        }
        case ERecord::put:
            ReplayPut(cursor, state);
            return;
        case ERecord::remove:
            state.RemoveEntry(cursor.Counted());
            return;
    }
    throw exc::CRuntimeExc("records of kind %1 are not known; a newer version may have written them",
                           static_cast<unsigned>(kind));
}

}  // namespace

void CChunkBase::Follow(const SChunk& chunk) {
    streamEnd_ = chunk.streamOffset + chunk.plainSize;
    block_ = chunk.block;
    blockEnd_ = std::uint64_t{chunk.blockOffset} + chunk.storedSize;
}

void CChunkBase::Encode(std::string& out, const SChunk& chunk) const {
    PutVarint(out, chunk.streamOffset - streamEnd_);
    PutVarint(out, chunk.plainSize);
    PutVarint(out, chunk.storedSize);
    PutSigned(out, std::int64_t{chunk.block} - std::int64_t{block_});
    const std::uint64_t blockBase = chunk.block == block_ ? blockEnd_ : 0;
    PutSigned(out, static_cast<std::int64_t>(chunk.blockOffset - blockBase));
    out += static_cast<char>(chunk.codec);
    out.append(chunk.sha256.bytes.begin(), chunk.sha256.bytes.end());
}

SChunk CChunkBase::Decode(CByteCursor& cursor) const {
    const auto narrow = [](std::uint64_t value) {
        if (value > std::numeric_limits<std::uint32_t>::max()) {
            throw exc::CRuntimeExc("a chunk's place in the blocks is beyond all bounds");
        }
        return static_cast<std::uint32_t>(value);
    };
    SChunk chunk;
    chunk.streamOffset = streamEnd_ + cursor.Varint();
    chunk.plainSize = cursor.Number<std::uint32_t>();
    chunk.storedSize = cursor.Number<std::uint32_t>();
    // Sums wrap where nothing sensible comes out, and are refused then.
    chunk.block = narrow(block_ + static_cast<std::uint64_t>(cursor.Signed()));
    const std::uint64_t blockBase = chunk.block == block_ ? blockEnd_ : 0;
    chunk.blockOffset = narrow(blockBase + static_cast<std::uint64_t>(cursor.Signed()));
    chunk.codec = static_cast<EChunkCodec>(cursor.Byte());
    const std::string_view sha256 = cursor.Bytes(chunk.sha256.bytes.size());
    std::copy(sha256.begin(), sha256.end(), chunk.sha256.bytes.begin());
    return chunk;
}

void PutBlockRecord(std::string& out, const SBlockExternalId& block) {
    PutKind(out, ERecord::block);
    io::mem_stream_tt<> stream;
    block.Serial(stream);
    out.append(stream.GetBuffer().begin(), stream.GetBuffer().end());
}

void PutChunkRecord(std::string& out, const CChunkBase& base, const SChunk& chunk) {
    PutKind(out, ERecord::chunk);
    base.Encode(out, chunk);
}

void PutEntryRecord(std::string& out, std::string_view path, CPackedView entry) {
    PutKind(out, ERecord::put);
    PutCounted(out, path);
    PutCounted(out, entry.GetBytes());
}

void PutRemoveRecord(std::string& out, std::string_view path) {
    PutKind(out, ERecord::remove);
    PutCounted(out, path);
}

std::uint64_t ReplayRecords(std::string_view plain, CMetaState& state) {
    CByteCursor cursor(plain);
    CChunkBase base;
    std::uint64_t count = 0;
    for (; !cursor.IsAtEnd(); ++count) {
        const std::size_t begin = cursor.GetPosition();
        try {
            ReplayRecord(cursor, state, base);
        } catch (const exc::CExc& failure) {
            exc::RegenTraceExc(failure, "record at byte %1", begin);
        }
    }
    return count;
}

}  // namespace agent::meta
