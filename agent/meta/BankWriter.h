#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/meta/BankCodec.h"
#include "agent/meta/MetaHeader.h"
#include "agent/meta/MetaState.h"
#include "agent/meta/Records.h"
#include "common/posix.h"

namespace agent::meta {

/// Gathers records into banks and writes these to a file, one behind the other. The file stays the caller's. For one
/// thread. File errors and records that no bank can hold are exceptions.
class CBankWriter {
public:
    /// `banks` is the table so far; writing goes on behind its last bank.
    CBankWriter(posix::posix_file_t& file, std::vector<SMetaBank> banks, const std::optional<SBankSeal>& seal);

    void AddChanges(const SMetaChanges& changes);
    void AddAll(const CMetaState& state);
    /// Writes what is gathered; to be called at the end.
    void Finish();

    /// The table did not suffice: what came last is not in it.
    [[nodiscard]] bool IsTableFull() const { return full_; }
    [[nodiscard]] const std::vector<SMetaBank>& GetBanks() const { return banks_; }
    [[nodiscard]] std::uint64_t CountRecords() const { return records_; }

private:
    template <class Encode>
    void Add(const Encode& encode);
    void AddChunks(const std::vector<SChunk>& chunks);
    void AddEntries(const CEntryTable& entries);

    posix::posix_file_t& file_;
    const std::optional<SBankSeal>& seal_;
    std::vector<SMetaBank> banks_;
    std::string plain_;
    CChunkBase base_;
    std::uint64_t end_;
    std::uint64_t records_ = 0;
    bool full_ = false;
};

}  // namespace agent::meta
