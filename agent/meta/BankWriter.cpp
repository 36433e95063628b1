#include "agent/meta/BankWriter.h"

#include <utility>

#include "agent/meta/BankCodec.h"
#include "agent/meta/MetaLimits.h"
#include "common/exc.h"

namespace agent::meta {

namespace {

constexpr std::size_t largePlain = std::size_t{1} << 20U;

}  // namespace

CBankWriter::CBankWriter(posix::posix_file_t& file, std::vector<SMetaBank> banks, const std::optional<SBankSeal>& seal)
    : file_(file),
      seal_(seal),
      banks_(std::move(banks)),
      end_(banks_.empty() ? headerSize : banks_.back().offset + banks_.back().storedSize) {}

template <class Encode>
void CBankWriter::Add(const Encode& encode) {
    const std::size_t before = plain_.size();
    if (before > largePlain && plain_.capacity() < BankLimit(banks_.size())) {
        plain_.reserve(BankLimit(banks_.size()) + largePlain);  // else it would double beyond
    }
    encode(plain_);
    if (before != 0 && plain_.size() > BankLimit(banks_.size())) {
        plain_.resize(before);
        Finish();
        encode(plain_);
    }
    if (plain_.size() > maxBankPlainSize) {
        throw exc::CRuntimeExc("a record of %1 bytes is too large", plain_.size());
    }
    ++records_;
}

void CBankWriter::AddChunks(const std::vector<SChunk>& chunks) {
    for (const auto& chunk : chunks) {
        Add([&](std::string& out) { PutChunkRecord(out, base_, chunk); });
        base_.Follow(chunk);
    }
}

void CBankWriter::AddEntries(const CEntryTable& entries) {
    for (const auto& [path, entry] : entries) {
        Add([path = path, entry = entry](std::string& out) { PutEntryRecord(out, path, entry); });
    }
}

void CBankWriter::AddChanges(const SMetaChanges& changes) {
    for (const auto& block : changes.blocks) {
        Add([&](std::string& out) { PutBlockRecord(out, block); });
    }
    AddChunks(changes.chunks);
    for (const auto& path : changes.removed) {
        Add([&](std::string& out) { PutRemoveRecord(out, path); });
    }
    AddEntries(changes.entries);
}

void CBankWriter::AddAll(const CMetaState& state) {
    for (const auto& block : state.GetBlocks()) {
        Add([&](std::string& out) { PutBlockRecord(out, block); });
    }
    AddChunks(state.GetChunks());
    AddEntries(state.GetEntries());
}

void CBankWriter::Finish() {
    base_ = CChunkBase();
    full_ = full_ || (!plain_.empty() && banks_.size() == maxBanks);
    if (plain_.empty() || full_) {
        plain_.clear();
        return;
    }
    SMetaBank bank;
    bank.offset = end_;
    bank.plainSize = plain_.size();
    const SStoredBank stored = StoreBank(std::exchange(plain_, {}), end_, seal_);
    bank.storedSize = stored.bytes.size();
    bank.codec = stored.codec;
    bank.sha256 = digest::Sha256(stored.bytes);
    CheckBank(bank, seal_.has_value());
    file_.WriteAt(end_, stored.bytes);
    end_ += bank.storedSize;
    banks_.push_back(bank);
}

}  // namespace agent::meta
