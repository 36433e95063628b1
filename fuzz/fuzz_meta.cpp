// The metadata file of a storage, as it may come from anyone's cloud or disk. The first byte says what the rest is: an
// even one a file, whose digests are made right first; an odd one the records of a bank. What is taken must hold
// together and read back the same.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "agent/meta/MetaAssembly.h"
#include "agent/meta/MetaFile.h"
#include "agent/meta/Records.h"
#include "common/exc.h"
#include "fuzz/Readers.h"
#include "tests/support/MemoryExtent.h"

using fuzz::Require;

namespace {

using namespace agent;

std::string RecordsOf(const CMetaState& state) {
    std::string out;
    for (const auto& block : state.GetBlocks()) {
        meta::PutBlockRecord(out, block);
    }
    meta::CChunkBase base;
    for (const auto& chunk : state.GetChunks()) {
        meta::PutChunkRecord(out, base, chunk);
        base.Follow(chunk);
    }
    for (const auto& [path, packed] : state.GetEntries()) {
        const CPackedEntry again(packed.Unpack());
        Require(again == packed);
        meta::PutEntryRecord(out, path, again);
    }
    return out;
}

/// A state that was taken can be used, and is the same when it is written and read again.
void UseState(const CMetaState& state) {
    for (const auto& [path, packed] : state.GetEntries()) {
        for (const auto& segment : packed.Unpack().segments) {
            const auto chunks = state.FindChunks(segment.streamOffset, segment.length);
            Require(!chunks.empty() && chunks.front().streamOffset <= segment.streamOffset);
            Require(chunks.back().streamOffset + chunks.back().plainSize >= segment.streamOffset + segment.length);
            Require(chunks.back().block < state.GetBlocks().size());
        }
    }
    CMetaState again;
    meta::ReplayRecords(RecordsOf(state), again);
    again.SetStreamEnd(state.GetStreamEnd());
    Require(again == state);
}

std::optional<CMetaState> ReadFile(std::string file) {
    meta::RepairDigests(file);
    test::MemoryExtent extent(std::move(file));
    try {
        return ReadMeta(extent, "fuzz").state;
    } catch (const exc::CRuntimeExc&) {
        return std::nullopt;
    }
}

std::optional<CMetaState> ReadRecords(std::string_view records) {
    CMetaState state;
    try {
        meta::ReplayRecords(records, state);
        static_cast<void>(state.Check());
    } catch (const exc::CRuntimeExc&) {
        return std::nullopt;
    }
    return state;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::optional<CMetaState> state = data[0] % 2 == 0 ? ReadFile(std::string(rest)) : ReadRecords(rest);
    if (state) {
        UseState(*state);
        state->Compact(state->Check());
        UseState(*state);
    }
    return 0;
}
