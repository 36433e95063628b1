#include "agent/meta/MetaHeader.h"

#include <algorithm>

#include "agent/keys/Sealing.h"
#include "agent/meta/ByteCodec.h"
#include "agent/meta/MetaLimits.h"
#include "common/exc.h"

namespace agent {

namespace {

using meta::CByteCursor;
using meta::PutFixed;

/// The line end in it shows a transfer that took the file for text.
constexpr std::string_view magic("CBMETA\r\n", 8);
constexpr std::uint32_t formatVersion = 1;
/// How banks are protected.
constexpr std::uint32_t protectedByNothing = 0;
constexpr std::uint32_t protectedByAes256Gcm = 1;
constexpr std::size_t bankTableOffset = 480;
constexpr std::size_t bankRowSize = 64;
constexpr std::size_t digestOffset = meta::headerSize - 32;
static_assert(bankTableOffset + meta::maxBanks * bankRowSize == digestOffset);

template <class Bytes>
void PutBytes(std::string& out, const Bytes& bytes) {
    out.append(bytes.begin(), bytes.end());
}

template <std::size_t N>
std::array<std::uint8_t, N> GetArray(CByteCursor& cursor) {
    std::array<std::uint8_t, N> array{};
    const std::string_view bytes = cursor.Bytes(N);
    std::copy(bytes.begin(), bytes.end(), array.begin());
    return array;
}

void RequireZeros(std::string_view bytes, std::size_t offset) {
    const auto found = std::find_if(bytes.begin(), bytes.end(), [](char c) { return c != 0; });
    if (found != bytes.end()) {
        throw exc::CRuntimeExc("byte %1 of the header is in use; a newer version may have written it",
                               offset + static_cast<std::size_t>(found - bytes.begin()));
    }
}

void PutBank(std::string& out, const SMetaBank& bank) {
    PutFixed(out, bank.offset);
    PutFixed(out, bank.storedSize);
    PutFixed(out, bank.plainSize);
    PutFixed(out, static_cast<std::uint8_t>(bank.codec));
    out.append(7, '\0');
    PutBytes(out, bank.sha256.bytes);
}

SMetaBank GetBank(CByteCursor& cursor) {
    SMetaBank bank;
    bank.offset = cursor.Fixed<std::uint64_t>();
    bank.storedSize = cursor.Fixed<std::uint64_t>();
    bank.plainSize = cursor.Fixed<std::uint64_t>();
    bank.codec = static_cast<EBankCodec>(cursor.Byte());
    const std::size_t reserved = cursor.GetPosition();
    RequireZeros(cursor.Bytes(7), reserved);
    bank.sha256.bytes = GetArray<32>(cursor);
    return bank;
}

void GetBanks(CByteCursor& cursor, SMetaHeader& header, std::uint32_t count) {
    if (count > meta::maxBanks) {
        throw exc::CRuntimeExc("%1 banks are more than the table holds", count);
    }
    std::uint64_t end = meta::headerSize;
    for (std::uint32_t i = 0; i < count; ++i) {
        try {
            header.banks.push_back(GetBank(cursor));
            meta::CheckBank(header.banks.back(), header.IsSealed());
        } catch (const exc::CExc& failure) {
            exc::RegenTraceExc(failure, "row %1 of the bank table", i);
        }
        if (header.banks.back().offset != end) {
            throw exc::CRuntimeExc("bank %1 is at %2 where the one before it ends at %3", i, header.banks.back().offset,
                                   end);
        }
        end += header.banks.back().storedSize;
    }
    const std::size_t unused = cursor.GetPosition();
    RequireZeros(cursor.Bytes(cursor.GetRemaining()), unused);
}

/// What comes before everything else: whether this is a file that can be read at all.
void CheckFormat(std::string_view bytes) {
    if (bytes.size() < magic.size() || bytes.substr(0, magic.size()) != magic) {
        throw exc::CRuntimeExc("it is no metadata file");
    }
    if (bytes.size() != meta::headerSize) {
        throw exc::CRuntimeExc("the header is cut off after %1 bytes", bytes.size());
    }
    CByteCursor cursor(bytes.substr(magic.size()));
    const auto version = cursor.Fixed<std::uint32_t>();
    if (version != formatVersion) {
        throw exc::CRuntimeExc("format version %1 is not supported", version);
    }
    const auto size = cursor.Fixed<std::uint32_t>();
    if (size != meta::headerSize) {
        throw exc::CRuntimeExc("a header of %1 bytes is not supported", size);
    }
    const std::string_view covered = bytes.substr(0, digestOffset);
    CByteCursor trailer(bytes.substr(digestOffset));
    if (digest::Sha256(covered).bytes != GetArray<32>(trailer)) {
        throw exc::CRuntimeExc("the header is damaged");
    }
}

crypto::SRawKeySetId GetProtection(CByteCursor& cursor) {
    const auto flags = cursor.Fixed<std::uint32_t>();
    if (flags != 0) {
        throw exc::CRuntimeExc("flags %1 are not known; a newer version may have written them", flags);
    }
    const auto protection = cursor.Fixed<std::uint32_t>();
    if (protection > protectedByAes256Gcm) {
        throw exc::CRuntimeExc("encryption kind %1 is not supported", protection);
    }
    crypto::SRawKeySetId keySetId;
    keySetId.bytes = GetArray<crypto::SRawKeySetId::size>(cursor);
    const bool hasKey = keySetId != crypto::SRawKeySetId();
    if (hasKey != (protection == protectedByAes256Gcm)) {
        throw exc::CRuntimeExc("encryption kind %1 and key '%2' do not go together", protection, keySetId.ToAStr());
    }
    return keySetId;
}

void CheckNumbers(const SMetaHeader& header) {
    if (header.version == 0 || header.previousVersion >= header.version) {
        throw exc::CRuntimeExc("version %1 cannot follow version %2", header.version, header.previousVersion);
    }
    if (header.streamEnd > meta::maxOffset) {
        throw exc::CRuntimeExc("the stream cannot end at %1", header.streamEnd);
    }
    // No record is shorter than a byte, so that no sum of the counts can overflow.
    std::uint64_t records = 0;
    for (const auto& bank : header.banks) {
        records += bank.plainSize;
    }
    for (const auto count : {header.entries, header.chunks, header.blocks, header.deadRecords}) {
        if (count > records) {
            throw exc::CRuntimeExc("there cannot be %1 records in %2 bytes", count, records);
        }
    }
}

}  // namespace

std::uint64_t SMetaHeader::GetFileSize() const {
    return banks.empty() ? meta::headerSize : banks.back().offset + banks.back().storedSize;
}

void meta::CheckBank(const SMetaBank& bank, bool isSealed) {
    if (bank.codec > EBankCodec::zstd) {
        throw exc::CRuntimeExc("bank codec %1 is not known", static_cast<unsigned>(bank.codec));
    }
    // A bank is written only where it is not larger than its records, but for what sealing adds.
    const std::uint64_t added = isSealed ? sealOverhead : 0;
    const std::uint64_t size = bank.storedSize - std::min(added, bank.storedSize);
    if (size == 0 || size > bank.plainSize || bank.plainSize > maxBankPlainSize) {
        throw exc::CRuntimeExc("a bank of %1 bytes, stored as %2, is not possible", bank.plainSize, bank.storedSize);
    }
    if (bank.plainSize > size * maxExpansion + expansionAllowance) {
        throw exc::CRuntimeExc("%1 stored bytes claim to hold %2", bank.storedSize, bank.plainSize);
    }
    if (bank.codec == EBankCodec::plain && size != bank.plainSize) {
        throw exc::CRuntimeExc("a plain bank of %1 bytes cannot be stored as %2", bank.plainSize, bank.storedSize);
    }
}

std::string meta::SerializeHeader(SMetaHeader& header) {
    std::string out(magic);
    out.reserve(headerSize);
    PutFixed(out, formatVersion);
    PutFixed(out, static_cast<std::uint32_t>(headerSize));
    PutFixed(out, std::uint32_t{0});  // flags
    PutFixed(out, header.IsSealed() ? protectedByAes256Gcm : protectedByNothing);
    PutBytes(out, header.keySetId.bytes);
    PutBytes(out, header.storageId.GetBytes());
    for (const auto number : {header.version, header.previousVersion, header.streamEnd, header.entries, header.chunks,
                              header.blocks, header.deadRecords}) {
        PutFixed(out, number);
    }
    PutFixed(out, static_cast<std::uint32_t>(header.banks.size()));
    out.resize(bankTableOffset);
    for (const auto& bank : header.banks) {
        PutBank(out, bank);
    }
    out.resize(digestOffset);
    header.sha256 = digest::Sha256(out);
    PutBytes(out, header.sha256.bytes);
    return out;
}

SMetaHeader meta::ParseHeader(std::string_view bytes) {
    CheckFormat(bytes);
    const std::size_t begin = magic.size() + 2 * sizeof(std::uint32_t);
    CByteCursor cursor(bytes.substr(0, digestOffset));
    cursor.Bytes(begin);
    SMetaHeader header;
    header.keySetId = GetProtection(cursor);
    header.storageId = guid::guid_t(GetArray<16>(cursor));
    for (auto* number : {&header.version, &header.previousVersion, &header.streamEnd, &header.entries, &header.chunks,
                         &header.blocks, &header.deadRecords}) {
        *number = cursor.Fixed<std::uint64_t>();
    }
    const auto bankCount = cursor.Fixed<std::uint32_t>();
    const std::size_t reserved = cursor.GetPosition();
    RequireZeros(cursor.Bytes(bankTableOffset - reserved), reserved);
    GetBanks(cursor, header, bankCount);
    CheckNumbers(header);
    CByteCursor trailer(bytes.substr(digestOffset));
    header.sha256.bytes = GetArray<32>(trailer);
    return header;
}

}  // namespace agent
