#include <algorithm>

#include "agent/meta/BankCodec.h"
#include "agent/meta/FileExtent.h"
#include "agent/meta/MetaFile.h"
#include "agent/meta/MetaLimits.h"
#include "agent/meta/MetaSource.h"
#include "agent/meta/Records.h"
#include "common/exc.h"
#include "common/logging.h"

namespace agent {

namespace {

const logging::section_t readerLog("agent.meta");

constexpr std::uint64_t pieceSize = std::uint64_t{1} << 20;

/// Every record is either live or dead: a state that has lost or gained any is noticed.
void CheckCounts(const SMetaHeader& header, const CMetaState& state, const SMetaUsage& usage, std::uint64_t records) {
    if (header.entries != state.GetEntries().size() || header.chunks != usage.chunkCount ||
        header.blocks != usage.blockCount || header.CountLive() + header.deadRecords != records) {
        throw exc::CRuntimeExc(
            "its %1 records make %2 entries, %3 chunks and %4 blocks where the header says %5, %6 and %7, and %8 dead",
            records, state.GetEntries().size(), usage.chunkCount, usage.blockCount, header.entries, header.chunks,
            header.blocks, header.deadRecords);
    }
}

/// How the banks of that file are sealed; nothing where they are not.
std::optional<meta::SBankSeal> SealOf(const SMetaHeader& header, const CKeyRing& keys) {
    if (const data_key_ptr key = keys.FindExc(header.keySetId)) {
        return meta::SBankSeal(*key, header.storageId);
    }
    return std::nullopt;
}

std::uint64_t ReplayBanks(io::stg::IStgExtent& extent, const SMetaHeader& header, const CKeyRing& keys,
                          CMetaState& state) {
    const auto seal = SealOf(header, keys);
    std::uint64_t records = 0;
    for (std::size_t i = 0; i < header.banks.size(); ++i) {
        const SMetaBank& bank = header.banks[i];
        try {
            std::string stored(bank.storedSize, '\0');
            meta::ReadExactly(extent, bank.offset, stored);
            records += meta::ReplayRecords(meta::UnstoreBank(bank, std::move(stored), seal), state);
        } catch (const exc::CExc& failure) {
            exc::RegenTraceExc(failure, "bank %1", i);
        }
    }
    return records;
}

SMeta ReadWhole(io::stg::IStgExtent& extent, const CKeyRing& keys) {
    SMeta result;
    result.header = meta::ReadWholeHeader(extent);
    const std::uint64_t records = ReplayBanks(extent, result.header, keys, result.state);
    result.state.SetStreamEnd(result.header.streamEnd);
    const SMetaUsage usage = result.state.Check();
    CheckCounts(result.header, result.state, usage, records);
    result.state.DropUnusedChunks(usage);
    result.state.SetOrigin(result.header.sha256);
    return result;
}

}  // namespace

void meta::ReadExactly(io::stg::IStgExtent& extent, std::uint64_t offset, std::span<char> bytes) {
    const std::size_t received = extent.Read(offset, bytes.data(), bytes.size());
    if (received != bytes.size()) {
        throw exc::CRuntimeExc("%1 bytes are expected at %2 where %3 are left", bytes.size(), offset, received);
    }
}

SMetaHeader meta::ReadHeader(io::stg::IStgExtent& extent) {
    std::string bytes(headerSize, '\0');
    bytes.resize(extent.Read(0, bytes.data(), bytes.size()));
    return ParseHeader(bytes);
}

SMetaHeader meta::ReadWholeHeader(io::stg::IStgExtent& extent) {
    SMetaHeader header = ReadHeader(extent);
    const std::uint64_t size = extent.GetSize();
    if (size != header.GetFileSize()) {
        throw exc::CRuntimeExc("it has %1 bytes where the header says %2", size, header.GetFileSize());
    }
    return header;
}

void meta::ReadBankBytes(io::stg::IStgExtent& extent, const SMetaBank& bank,
                         const std::function<void(std::span<const char>)>& sink) {
    digest::CSha256 sha256;
    std::string piece;
    for (std::uint64_t done = 0; done < bank.storedSize; done += piece.size()) {
        piece.resize(std::min(pieceSize, bank.storedSize - done));
        ReadExactly(extent, bank.offset + done, piece);
        sha256.Update(piece);
        sink(piece);
    }
    if (sha256.Finish() != bank.sha256) {
        throw exc::CRuntimeExc("bank at %1: its bytes are damaged", bank.offset);
    }
}

SMetaHeader ReadMetaHeader(const std::string& path) {
    try {
        CFileExtent extent(path);
        return meta::ReadHeader(extent);
    } catch (const exc::CExc& failure) {
        exc::RegenTraceExc(failure, "Cannot read metadata file '%1'", path);
    }
}

SMeta ReadMeta(io::stg::IStgExtent& extent, const std::string& name, const CKeyRing& keys) {
    try {
        return ReadWhole(extent, keys);
    } catch (const exc::CExc& failure) {
        exc::RegenTraceExc(failure, "Cannot read metadata file '%1'", name);
    }
}

SMeta ReadMeta(const std::string& path, const CKeyRing& keys) {
    try {
        CFileExtent extent(path);
        return ReadWhole(extent, keys);
    } catch (const exc::CExc& failure) {
        exc::RegenTraceExc(failure, "Cannot read metadata file '%1'", path);
    }
}

bool IsIntact(const std::string& path, std::uint64_t version) {
    try {
        CFileExtent extent(path);
        const SMetaHeader header = meta::ReadWholeHeader(extent);
        if (header.version != version) {
            throw exc::CRuntimeExc("it holds version %1, not %2", header.version, version);
        }
        for (const auto& bank : header.banks) {
            meta::ReadBankBytes(extent, bank, [](std::span<const char>) {});
        }
        return true;
    } catch (const exc::CExc& failure) {
        readerLog.Info("Metadata file '%1' is not intact: %2", path, failure.what());
        return false;
    }
}

}  // namespace agent
