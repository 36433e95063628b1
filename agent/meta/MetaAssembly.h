#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "agent/meta/BankCodec.h"
#include "agent/meta/ByteCodec.h"
#include "agent/meta/MetaLimits.h"
#include "common/digest.h"

/// For tests: metadata files put together, or changed, behind the writer's back.
namespace agent::meta {

constexpr std::size_t bankCountPlace = 112;
constexpr std::size_t bankTablePlace = 480;
constexpr std::size_t bankRowLength = 64;
constexpr std::size_t headerDigestPlace = headerSize - 32;

/// A file with these banks, stored as the writer would; all else of the header as given.
inline std::string AssembleFile(SMetaHeader header, const std::vector<std::string>& plainBanks) {
    std::string banks;
    for (const auto& plain : plainBanks) {
        SStoredBank stored = StoreBank(plain, 0, {});
        header.banks.push_back(
            {headerSize + banks.size(), stored.bytes.size(), plain.size(), stored.codec, digest::Sha256(stored.bytes)});
        banks += stored.bytes;
    }
    return SerializeHeader(header) + banks;
}

inline void PutDigest(std::string& file, std::size_t place, const digest::sha256_digest_t& sha256) {
    std::copy(sha256.bytes.begin(), sha256.bytes.end(), file.begin() + static_cast<std::ptrdiff_t>(place));
}

/// Makes all digests of the file right again: those of the banks that lie within it, then the header's.
inline void RepairDigests(std::string& file) {
    if (file.size() < headerSize) {
        return;
    }
    const std::string_view bytes = file;
    const auto count =
        std::min<std::uint64_t>(CByteCursor(bytes.substr(bankCountPlace)).Fixed<std::uint32_t>(), maxBanks);
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::size_t row = bankTablePlace + i * bankRowLength;
        CByteCursor cursor(bytes.substr(row));
        const auto offset = cursor.Fixed<std::uint64_t>();
        const auto size = cursor.Fixed<std::uint64_t>();
        if (IsWithin(offset, size, file.size())) {
            PutDigest(file, row + 32, digest::Sha256(bytes.substr(offset, size)));
        }
    }
    PutDigest(file, headerDigestPlace, digest::Sha256(bytes.substr(0, headerDigestPlace)));
}

}  // namespace agent::meta
