#include "agent/run/RepackChunks.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "agent/chunk/BlockBuilder.h"
#include "agent/chunk/BlockUploader.h"
#include "agent/chunk/ChunkDecoder.h"
#include "agent/chunk/ThreadCount.h"
#include "cloudclientlib/CloudExc.h"
#include "common/exc.h"

namespace agent {

namespace {

constexpr std::size_t mostTransfers = 8;

std::size_t TransferLimit(cloudclientlib::ICloudClient& client) {
    return std::clamp<std::size_t>(client.GetConcurrentTaskLimit(), 1, mostTransfers);
}

/// What will be so at the next try too, and harms no other block.
bool IsDamage(const cloudclientlib::CCloudExc& failure) {
    using cloudclientlib::EFailure;
    const EFailure kind = failure.GetKind();
    return kind == EFailure::notFound || kind == EFailure::corrupt || kind == EFailure::conflict;
}

/// Moves the chunks of one key. Used once.
class CChunkMover {
public:
    CChunkMover(const SChunkSource& source, const std::vector<SChunk>& wanted, SBlockTarget target,
                const trouble_sink_t& onTrouble)
        : source_(source),
          wanted_(wanted),
          key_(source.keys->FindExc(target.keySetId)),
          onTrouble_(onTrouble),
          builder_(SBlockSizes{}),
          uploader_(std::move(target), TransferLimit(*source.client)),
          decoder_(ThreadCount(source.threads)) {}

    void Run(chunk_moves_t& moves) {
        CRangeDownloads downloads(source_, wanted_, TransferLimit(*source_.client));
        try {
            std::size_t submitted = 0;
            for (std::size_t index = 0; index < wanted_.size(); ++index) {
                while (submitted < wanted_.size() && !decoder_.IsFull()) {
                    Submit(submitted++, downloads);
                }
                Take(wanted_[index]);
            }
            EndBlock();
            AddMoves(moves);
        } catch (...) {
            decoder_.Clear();
            throw;
        }
    }

private:
    struct SPlaced {
        const SChunk* chunk = nullptr;
        std::size_t number = 0;  // of the new block
        std::uint32_t offset = 0;
    };

    void Submit(std::size_t index, CRangeDownloads& downloads) {
        const CRangeDownloads::range_ptr range = downloads.Wait(index);
        if (range->failure) {
            decoder_.SubmitFailed(wanted_[index], range->failure);
        } else {
            decoder_.Submit(wanted_[index], range, key_);
        }
    }

    void Take(const SChunk& chunk) {
        SDecodeSlot& slot = decoder_.WaitFront();
        if (slot.failure && slot.source) {
            ReadAgain(slot);
        }
        if (slot.failure) {
            Tell(chunk, slot.failure);
        } else {
            const std::size_t within = chunk.blockOffset - slot.source->range.offset;
            Put(chunk, std::span<const char>(*slot.source->bytes).subspan(within, chunk.storedSize));
        }
        decoder_.PopFront();
    }

    /// Bytes that are not the chunk's may have changed on their way.
    void ReadAgain(SDecodeSlot& slot) {
        const auto download = DownloadChunk(source_, *slot.chunk);
        if (!download->failure) {
            decoder_.DecodeAgain(slot, download);
        }
    }

    void Tell(const SChunk& chunk, const std::exception_ptr& failure) {
        try {
            std::rethrow_exception(failure);
        } catch (const cloudclientlib::CCloudExc& cloudFailure) {
            if (!IsDamage(cloudFailure)) {
                throw;
            }
            TellOnce(chunk, cloudFailure);
        } catch (const exc::CRuntimeExc& damage) {
            TellOnce(chunk, damage);
        }
    }

    void TellOnce(const SChunk& chunk, const std::exception& reason) {
        if (told_.insert(chunk.block).second) {
            onTrouble_({GetBlockPath(source_, chunk.block),
                        exc::Format("the chunk at byte %1 cannot be read, so the block stays; see 'cloudbackup check': "
                                    "%2",
                                    chunk.blockOffset, exc::ChainText(reason))});
        }
    }

    void Put(const SChunk& chunk, std::span<const char> stored) {
        if (builder_.IsOpen() && !builder_.HasRoom(stored.size())) {
            EndBlock();
        }
        if (!builder_.IsOpen()) {
            builder_.Open(uploader_.TakeBuffer());
        }
        const auto place = builder_.Add(stored, chunk.sha256);
        placed_.push_back({&chunk, uploader_.GetCount(), place.offset});
        if (place.isEnd) {
            EndBlock();
        }
    }

    void EndBlock() {
        if (builder_.IsOpen()) {
            uploader_.Put(builder_.Close());
        }
    }

    void AddMoves(chunk_moves_t& moves) {
        const auto written = uploader_.Finish();
        for (const auto& placed : placed_) {
            const SChunkPlace from{{source_.blocks[placed.chunk->block].id}, placed.chunk->blockOffset};
            moves.emplace(from, SMovedTo{written.at(placed.number).id, placed.offset});
        }
    }

    const SChunkSource& source_;
    const std::vector<SChunk>& wanted_;
    const data_key_ptr key_;
    const trouble_sink_t& onTrouble_;
    CBlockBuilder builder_;
    CBlockUploader uploader_;
    CChunkDecoder decoder_;
    std::vector<SPlaced> placed_;
    std::set<std::uint32_t> told_;
};

}  // namespace

void CWantedChunks::Add(const CMetaState& state) {
    const auto& table = state.GetBlocks();
    for (const auto& chunk : state.GetChunks()) {
        const SBlockExternalId& block = table[chunk.block];
        if (!blocks_.contains({block.id})) {
            continue;
        }
        const std::uint32_t index = IndexOf(block);
        if (seen_.emplace(index, chunk.blockOffset).second) {
            chunks_.push_back(chunk);
            chunks_.back().block = index;
        }
    }
}

std::uint32_t CWantedChunks::IndexOf(const SBlockExternalId& block) {
    const auto next = static_cast<std::uint32_t>(table_.size());
    const auto [found, isNew] = indexes_.try_emplace(digest::md5_digest_t{block.id}, next);
    if (isNew) {
        table_.push_back(block);
    }
    return found->second;
}

std::vector<SChunk> CWantedChunks::ChunksOf(const crypto::SRawKeySetId& key) const {
    std::vector<SChunk> chunks;
    std::copy_if(chunks_.begin(), chunks_.end(), std::back_inserter(chunks),
                 [&](const SChunk& chunk) { return table_[chunk.block].keySetId == key; });
    const auto orderOf = [](const SChunk& chunk) {
        return std::tuple(chunk.streamOffset, chunk.block, chunk.blockOffset);
    };
    std::sort(chunks.begin(), chunks.end(), [&](const SChunk& a, const SChunk& b) { return orderOf(a) < orderOf(b); });
    return chunks;
}

std::set<crypto::SRawKeySetId> CWantedChunks::GetKeys() const {
    std::set<crypto::SRawKeySetId> keys;
    for (const auto& block : table_) {
        keys.insert(block.keySetId);
    }
    return keys;
}

chunk_moves_t MoveChunks(const SChunkSource& source, const CWantedChunks& wanted, std::uint64_t runVersion,
                         const trouble_sink_t& onTrouble) {
    chunk_moves_t moves;
    for (const auto& key : wanted.GetKeys()) {
        const std::vector<SChunk> chunks = wanted.ChunksOf(key);
        SBlockTarget target{source.client, source.backupId, source.storageId, runVersion, key};
        CChunkMover(source, chunks, std::move(target), onTrouble).Run(moves);
    }
    return moves;
}

}  // namespace agent
