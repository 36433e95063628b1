#include "agent/meta/BankCodec.h"

#include <zstd.h>

#include <utility>

#include "agent/meta/MetaLimits.h"
#include "common/exc.h"

namespace agent::meta {

namespace {

/// Higher levels take much time for little: measured in docs/format/metadata-file.md.
constexpr int compressionLevel = 3;

std::string Compress(const std::string& plain) {
    std::string out(ZSTD_compressBound(plain.size()), '\0');
    const std::size_t size = ZSTD_compress(out.data(), out.size(), plain.data(), plain.size(), compressionLevel);
    if (ZSTD_isError(size) != 0) {
        throw exc::CRuntimeExc("a bank cannot be compressed: %1", ZSTD_getErrorName(size));
    }
    out.resize(size);
    return out;
}

std::string Decompress(const std::string& stored, std::uint64_t plainSize) {
    if (ZSTD_getFrameContentSize(stored.data(), stored.size()) != plainSize ||
        ZSTD_findFrameCompressedSize(stored.data(), stored.size()) != stored.size()) {
        throw exc::CRuntimeExc("it is not one compressed frame of %1 bytes", plainSize);
    }
    std::string plain(plainSize, '\0');
    const std::size_t size = ZSTD_decompress(plain.data(), plain.size(), stored.data(), stored.size());
    if (ZSTD_isError(size) != 0) {
        throw exc::CRuntimeExc("it cannot be decompressed: %1", ZSTD_getErrorName(size));
    }
    if (size != plainSize) {
        throw exc::CRuntimeExc("it decompresses to %1 bytes, not %2", size, plainSize);
    }
    return plain;
}

SStoredBank CompressBank(std::string plain) {
    std::string packed = Compress(plain);
    if (packed.size() >= plain.size() || plain.size() > packed.size() * maxExpansion + expansionAllowance) {
        return {std::move(plain), EBankCodec::plain};
    }
    return {std::move(packed), EBankCodec::zstd};
}

/// A bank that stands elsewhere in the file is not the one that is looked for.
std::string PlaceOf(std::uint64_t offset) { return "bank at " + std::to_string(offset); }

}  // namespace

SStoredBank StoreBank(std::string plain, std::uint64_t offset, const std::optional<SBankSeal>& seal) {
    SStoredBank bank = CompressBank(std::move(plain));
    if (seal) {
        bank.bytes = SealText(seal->key, PlaceOf(offset), bank.bytes);
    }
    return bank;
}

std::string UnstoreBank(const SMetaBank& bank, std::string stored, const std::optional<SBankSeal>& seal) {
    if (digest::Sha256(stored) != bank.sha256) {
        throw exc::CRuntimeExc("its bytes are damaged");
    }
    if (seal) {
        stored = OpenText(seal->key, PlaceOf(bank.offset), stored);
    }
    if (bank.codec == EBankCodec::plain) {
        return stored;
    }
    return Decompress(stored, bank.plainSize);
}

}  // namespace agent::meta
