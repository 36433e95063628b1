#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/crypto/key_set.h"
#include "common/digest.h"
#include "common/guid.h"

namespace agent {

/// How a bank's records are stored.
enum class EBankCodec : std::uint8_t { plain = 0, zstd = 1 };

/// A row of the bank table. Sizes and offsets in bytes.
struct SMetaBank {
    std::uint64_t offset = 0;
    std::uint64_t storedSize = 0;
    std::uint64_t plainSize = 0;
    EBankCodec codec = EBankCodec::plain;
    /// Of the stored bytes.
    digest::sha256_digest_t sha256;

    bool operator==(const SMetaBank&) const = default;
};

/// The header of a storage's metadata file. A plain value.
struct SMetaHeader {
    guid::guid_t storageId;
    /// The key that the banks are sealed with; zero for none.
    crypto::SRawKeySetId keySetId;
    std::uint64_t version = 0;
    /// The version that this one was made from; 0 for none.
    std::uint64_t previousVersion = 0;
    /// Where the content stream ends.
    std::uint64_t streamEnd = 0;
    /// What is live: entries, chunks that an entry needs, blocks that such a chunk needs.
    std::uint64_t entries = 0;
    std::uint64_t chunks = 0;
    std::uint64_t blocks = 0;
    /// Records that no longer say anything: replaced, removed, not needed.
    std::uint64_t deadRecords = 0;
    std::vector<SMetaBank> banks;
    /// The digest at the header's own end; set by what reads or writes it.
    digest::sha256_digest_t sha256;

    [[nodiscard]] bool IsSealed() const { return keySetId != crypto::SRawKeySetId(); }
    [[nodiscard]] std::uint64_t CountLive() const { return entries + chunks + blocks; }
    /// Header and banks.
    [[nodiscard]] std::uint64_t GetFileSize() const;

    bool operator==(const SMetaHeader&) const = default;
};

namespace meta {

/// The header's bytes; sets its digest.
[[nodiscard]] std::string SerializeHeader(SMetaHeader& header);
/// Throws exc::CRuntimeExc for bytes that are not a whole header of a format that is known.
[[nodiscard]] SMetaHeader ParseHeader(std::string_view bytes);
/// Throws exc::CRuntimeExc for a row of the table that is not possible.
void CheckBank(const SMetaBank& bank, bool isSealed);

}  // namespace meta
}  // namespace agent
