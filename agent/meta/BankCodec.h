#pragma once

#include <string>

#include "agent/meta/MetaHeader.h"

/// A bank's way between its records and its stored bytes.
namespace agent::meta {

struct SStoredBank {
    std::string bytes;
    EBankCodec codec = EBankCodec::plain;
};

/// Compresses, or leaves as it is what does not get smaller, or gets so small that a reader would refuse it.
[[nodiscard]] SStoredBank StoreBank(std::string plain);

/// The records of a bank. Throws exc::CRuntimeExc when the digest is not the table's, or the bytes are not exactly one
/// frame of the size that the table says; nothing is allocated that the table's limits do not allow.
[[nodiscard]] std::string UnstoreBank(const SMetaBank& bank, std::string stored);

}  // namespace agent::meta
