#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "agent/keys/DataKey.h"
#include "agent/meta/MetaHeader.h"

/// A bank's way between its records and its stored bytes.
namespace agent::meta {

struct SStoredBank {
    std::string bytes;
    EBankCodec codec = EBankCodec::plain;
};

/// How a file's banks are sealed.
struct SBankSeal {
    SSealKey key;
    crypto::SRawKeySetId keySetId;

    SBankSeal(const CDataKey& dataKey, const guid::guid_t& storageId)
        : key(dataKey.BankKey(storageId)), keySetId(dataKey.GetId()) {}
};

/// Compresses, or leaves as it is what does not get smaller, or gets so small that a reader would refuse it; then seals
/// it for its place in the file.
[[nodiscard]] SStoredBank StoreBank(std::string plain, std::uint64_t offset, const std::optional<SBankSeal>& seal);

/// The records of a bank. Throws exc::CRuntimeExc when the digest is not the table's, or the bytes are not exactly one
/// frame of the size that the table says, or, where the file is sealed, not what was sealed for that place; nothing is
/// allocated that the table's limits do not allow.
[[nodiscard]] std::string UnstoreBank(const SMetaBank& bank, std::string stored, const std::optional<SBankSeal>& seal);

}  // namespace agent::meta
