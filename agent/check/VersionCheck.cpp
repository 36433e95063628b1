#include "agent/check/VersionCheck.h"

#include "agent/run/StoreFailure.h"
#include "agent/select/PathScope.h"
#include "cloudbackuplib/CloudPaths.h"
#include "common/exc.h"

namespace agent {

namespace paths = cloudbackuplib::backup::paths;

void CStorageCheck::AddVersion(const SRootVersion& version, const CMetaState& state, const SChunkSource& source) {
    const SMetaUsage usage = state.Check();
    root_ = version.root.path;
    for (std::uint32_t i = 0; i < state.GetBlocks().size(); ++i) {
        if (usage.blocks[i]) {
            CheckBlock(state.GetBlocks()[i], GetBlockPath(source, i));
        }
    }
    ReadChunks(state, usage, source);
    for (std::uint32_t i = 0; i < state.GetBlocks().size(); ++i) {
        const auto found = findings_.find(state.GetBlocks()[i].id);
        if (usage.blocks[i] && found != findings_.end()) {
            found->second.checkpoints.insert(version.checkpoints.begin(), version.checkpoints.end());
        }
    }
    NameFiles(version, state);
}

void CStorageCheck::CheckBlock(const SBlockExternalId& block, const std::string& path) {
    if (!numbers_.emplace(block.id, numbers_.size()).second) {
        return;
    }
    ++counts_.blocks;
    counts_.blockBytes += block.number32;
    Tell();
    SCheckedBlock* const listed = listing_.Find(block.id);
    if (listed == nullptr) {
        damage_.AddBlock(block.id);
        SetDamaged(block.id, EDamage::blockMissing, path, "is missing");
        return;
    }
    listed->isNeeded = true;
    if (listed->size != block.number32) {
        suspicious_.insert(block.id);
        SetDamaged(block.id, EDamage::blockSize, path,
                   exc::Format("has %1 bytes instead of %2", listed->size, block.number32));
    }
    if (options_.digests && listed->md5) {
        ++counts_.digestsCompared;
        if (listed->md5->bytes != block.id) {
            suspicious_.insert(block.id);
            SetDamaged(block.id, EDamage::blockDigest, path,
                       "the store recorded the MD5 " + paths::DigestToBlockName(*listed->md5) + " for it");
        }
    }
    if (suspicious_.contains(block.id) && !IsRead(block.id)) {
        damage_.AddBlock(block.id);  // what of it is left was not looked at
    }
}

/// The first thing found of a block is what is told.
void CStorageCheck::SetDamaged(const block_name_t& block, EDamage damage, const std::string& path,
                               const std::string& reason) {
    findings_.try_emplace(block, SFinding{damage, path, reason, {}, {}});
}

bool CStorageCheck::IsRead(const block_name_t& block) const {
    return (options_.readData && options_.readData->Takes(block)) ||
           (options_.readSuspicious && suspicious_.contains(block));
}

void CStorageCheck::ReadChunks(const CMetaState& state, const SMetaUsage& usage, const SChunkSource& source) {
    if (!options_.readData && !options_.readSuspicious) {
        return;
    }
    wanted_.clear();
    for (std::size_t i = 0; i < state.GetChunks().size(); ++i) {
        const SChunk& chunk = state.GetChunks()[i];
        const block_name_t& block = state.GetBlocks()[chunk.block].id;
        if (usage.chunks[i] && IsRead(block) && listing_.Find(block) != nullptr &&
            chunksRead_.insert((numbers_.at(block) << 32U) | chunk.blockOffset).second) {
            counts_.blocksRead += read_.insert(block).second ? 1U : 0U;
            wanted_.push_back(chunk);
        }
    }
    state_ = &state;
    source_ = &source;
    CChunkReader(source).Read(wanted_, *this);
}

void CStorageCheck::OnChunk(std::size_t /*index*/, std::span<const char> plain) {
    ++counts_.chunksRead;
    counts_.bytesRead += plain.size();
    Tell();
}

void CStorageCheck::Tell() const {
    if (options_.onProgress) {
        SProgress progress;
        progress.thing = "block";
        progress.currentPath = root_;
        progress.filesDone = options_.readData ? counts_.blocksRead : counts_.blocks;
        progress.bytesDone = counts_.bytesRead;
        progress.errors = findings_.size();
        options_.onProgress(progress);
    }
}

void CStorageCheck::OnDamagedChunk(std::size_t index, const std::exception& reason) {
    RethrowUnlessDamage(reason);
    const SChunk& chunk = wanted_[index];
    const block_name_t& block = state_->GetBlocks()[chunk.block].id;
    damage_.AddChunk(block, chunk.blockOffset);
    SetDamaged(block, EDamage::blockData, GetBlockPath(*source_, chunk.block), exc::ChainText(reason));
}

void CStorageCheck::NameFiles(const SRootVersion& version, const CMetaState& state) {
    for (const auto& lost : FindLostFiles(state, damage_)) {
        for (const auto& block : lost.blocks) {
            findings_.at(block).files.insert(FullPath(version.root.path, lost.path));
        }
    }
}

std::vector<SFinding> CStorageCheck::TakeFindings() {
    std::vector<SFinding> list;
    list.reserve(findings_.size());
    for (auto& [block, finding] : findings_) {
        list.push_back(std::move(finding));
    }
    findings_.clear();
    return list;
}

}  // namespace agent
