#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "agent/meta/MetaState.h"

/// The records of a bank. Replaying all records of all banks in order gives the state.
namespace agent::meta {

enum class ERecord : std::uint8_t { block = 1, chunk = 2, put = 3, remove = 4 };

/// Where the chunk before ended: the next is stored relative to it. Starts anew with every bank.
class CChunkBase {
public:
    void Follow(const SChunk& chunk);

    void Encode(std::string& out, const SChunk& chunk) const;
    /// Takes the fields as they come; whether they are possible is the state's to judge.
    [[nodiscard]] SChunk Decode(class CByteCursor& cursor) const;

private:
    std::uint64_t streamEnd_ = 0;
    std::uint32_t block_ = 0;
    std::uint64_t blockEnd_ = 0;
};

void PutBlockRecord(std::string& out, const SBlockExternalId& block);
void PutChunkRecord(std::string& out, const CChunkBase& base, const SChunk& chunk);
void PutEntryRecord(std::string& out, std::string_view path, CPackedView entry);
void PutRemoveRecord(std::string& out, std::string_view path);

/// Applies a bank's records to the state; returns how many there were. Throws exc::CRuntimeExc, which names the place,
/// for anything that is not a record or does not fit the state.
std::uint64_t ReplayRecords(std::string_view plain, CMetaState& state);

}  // namespace agent::meta
