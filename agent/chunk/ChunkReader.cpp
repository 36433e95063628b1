#include "agent/chunk/ChunkReader.h"

#include <algorithm>
#include <utility>

#include "agent/chunk/ChunkCheck.h"
#include "agent/chunk/RangeDownloads.h"
#include "agent/chunk/ThreadCount.h"
#include "common/exc.h"

namespace agent {

namespace {

constexpr std::size_t mostDownloads = 8;

std::size_t DownloadLimit(cloudclientlib::ICloudClient& client) {
    return std::clamp<std::size_t>(client.GetConcurrentTaskLimit(), 1, mostDownloads);
}

std::exception_ptr MakeFault(const std::string& fault) { return std::make_exception_ptr(exc::CRuntimeExc(fault)); }

}  // namespace

CChunkReader::CChunkReader(SChunkSource source) : source_(std::move(source)), decoder_(ThreadCount(source_.threads)) {}

void CChunkReader::Read(std::span<const SChunk> wanted, IChunkSink& sink) {
    CRangeDownloads downloads(source_, wanted, DownloadLimit(*source_.client));
    std::size_t submitted = 0;
    try {
        for (std::size_t index = 0; index < wanted.size(); ++index) {
            while (submitted < wanted.size() && !decoder_.IsFull()) {
                Submit(wanted, submitted++, downloads);
            }
            Deliver(wanted, index, sink);
        }
    } catch (...) {
        decoder_.Clear();
        throw;
    }
}

void CChunkReader::Submit(std::span<const SChunk> wanted, std::size_t index, CRangeDownloads& downloads) {
    const SChunk& chunk = wanted[index];
    if (const std::string fault = FindChunkFault(chunk, source_.blocks); !fault.empty()) {
        decoder_.SubmitFailed(chunk, MakeFault(fault));
        return;
    }
    data_key_ptr key;
    try {
        key = (source_.keys ? *source_.keys : CKeyRing()).FindExc(source_.blocks[chunk.block].keySetId);
    } catch (const exc::CRuntimeExc&) {
        decoder_.SubmitFailed(chunk, std::current_exception());
        return;
    }
    const CRangeDownloads::range_ptr range = downloads.Wait(index);
    if (range->failure) {
        decoder_.SubmitFailed(chunk, range->failure);
    } else {
        decoder_.Submit(chunk, range, std::move(key));
    }
}

void CChunkReader::Deliver(std::span<const SChunk> wanted, std::size_t index, IChunkSink& sink) {
    SDecodeSlot& slot = decoder_.WaitFront();
    if (slot.failure && slot.source) {
        ReadAgain(slot);
    }
    if (!slot.failure) {
        sink.OnChunk(index, slot.Plain());
    } else {
        try {
            try {
                std::rethrow_exception(slot.failure);
            } catch (const std::exception& cause) {
                exc::RegenTraceWithMessage(cause, Describe(wanted[index]));
            }
        } catch (const exc::CRuntimeExc& reason) {
            sink.OnDamagedChunk(index, reason);
        }
    }
    decoder_.PopFront();
}

void CChunkReader::ReadAgain(SDecodeSlot& slot) {
    const std::exception_ptr first = slot.failure;
    const auto download = DownloadChunk(source_, *slot.chunk);
    if (!download->failure) {
        decoder_.DecodeAgain(slot, download);
    }
    if (slot.failure) {
        slot.failure = first;
    }
}

std::string CChunkReader::Describe(const SChunk& chunk) const {
    const std::string block = chunk.block < source_.blocks.size() ? "'" + GetBlockPath(source_, chunk.block) + "'"
                                                                  : std::to_string(chunk.block);
    return exc::Format("The chunk at byte %1 of block %2 cannot be read", chunk.blockOffset, block);
}

}  // namespace agent
