#include "agent/check/BlockRebuild.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "agent/chunk/ChunkCheck.h"
#include "agent/chunk/ChunkSealing.h"
#include "agent/chunk/ChunkStream.h"
#include "agent/select/PathScope.h"
#include "cloudbackuplib/CloudPaths.h"
#include "cloudclientlib/CloudExc.h"

namespace agent {

namespace paths = cloudbackuplib::backup::paths;

namespace {

const int zstdLevel = SChunkStreamParams{}.zstdLevel;

/// A file of the source, open for reading; -1 for what is no file, or cannot be read. A fifo in its place is not waited
/// for.
class CSourceFile {
public:
    explicit CSourceFile(const std::string& path) : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        if (fd_ >= 0 && (::fstat(fd_, &stat_) != 0 || !S_ISREG(stat_.st_mode))) {
            ::close(fd_);
            fd_ = -1;
        }
    }
    ~CSourceFile() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    CSourceFile(const CSourceFile&) = delete;
    CSourceFile& operator=(const CSourceFile&) = delete;

    [[nodiscard]] bool IsAsItWas(std::uint64_t size, const STime& mtime) const {
        return fd_ >= 0 && static_cast<std::uint64_t>(stat_.st_size) == size && stat_.st_mtim.tv_sec == mtime.seconds &&
               stat_.st_mtim.tv_nsec == static_cast<long>(mtime.nanoseconds);
    }

    [[nodiscard]] bool Read(std::uint64_t offset, std::span<char> bytes) const {
        while (fd_ >= 0 && !bytes.empty()) {
            const ssize_t count = ::pread(fd_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
            if (count <= 0) {
                return false;
            }
            bytes = bytes.subspan(static_cast<std::size_t>(count));
            offset += static_cast<std::uint64_t>(count);
        }
        return bytes.empty();
    }

private:
    int fd_;
    struct stat stat_ {};
};

/// What is left of a block's object, in the size that it had.
std::shared_ptr<cnt::array_t<char>> Download(cloudclientlib::ICloudClient& client, const std::string& path,
                                             std::uint32_t size) {
    const auto bytes = std::make_shared<cnt::array_t<char>>();
    try {
        client.DownloadFileAsync(path, bytes, 0, size)->Wait();
    } catch (const cloudclientlib::CCloudExc& failure) {
        using cloudclientlib::EFailure;
        if (failure.GetKind() != EFailure::notFound && failure.GetKind() != EFailure::corrupt) {
            throw;
        }
        bytes->clear();
    }
    bytes->resize(size, '\0');
    return bytes;
}

}  // namespace

CBlockRebuild::CBlockRebuild(const CStorageDamage& damage, std::string source)
    : damage_(damage),
      source_(std::move(source)),
      compressor_(zstdLevel),
      plain_(maxChunkSize),
      room_(maxChunkSize + sealOverhead) {}

void CBlockRebuild::AddVersion(const SRootVersion& version, const CMetaState& state) {
    for (const auto& chunk : state.GetChunks()) {
        if (damage_.IsLost(state, chunk) && FindChunkFault(chunk, state.GetBlocks()).empty()) {
            const SBlockExternalId& id = state.GetBlocks()[chunk.block];
            SBlock& block = blocks_.try_emplace(id.id, SBlock{id, {}}).first->second;
            block.chunks.try_emplace(chunk.blockOffset, SLostChunk{chunk, {}});
        }
    }
    if (blocks_.empty()) {
        return;
    }
    for (const auto& [path, packed] : state.GetEntries()) {
        if (packed.GetType() == EEntryType::file) {
            AddPieces(version, state, std::string(path), packed.Unpack());
        }
    }
}

void CBlockRebuild::AddPieces(const SRootVersion& version, const CMetaState& state, const std::string& path,
                              const SEntry& entry) {
    for (const auto& segment : entry.segments) {
        for (const auto& chunk : state.FindChunks(segment.streamOffset, segment.length)) {
            SLostChunk* const lost = FindLost(state, chunk);
            if (lost == nullptr) {
                continue;
            }
            const std::uint64_t begin = std::max(segment.streamOffset, chunk.streamOffset);
            const std::uint64_t end =
                std::min(segment.streamOffset + segment.length, chunk.streamOffset + chunk.plainSize);
            lost->pieces.insert({source_ + FullPath(version.root.path, path),
                                 segment.fileOffset + (begin - segment.streamOffset),
                                 static_cast<std::uint32_t>(begin - chunk.streamOffset),
                                 static_cast<std::uint32_t>(end - begin), entry.size, entry.mtime});
        }
    }
}

CBlockRebuild::SLostChunk* CBlockRebuild::FindLost(const CMetaState& state, const SChunk& chunk) {
    const auto block = blocks_.find(state.GetBlocks()[chunk.block].id);
    if (block == blocks_.end()) {
        return nullptr;
    }
    const auto found = block->second.chunks.find(chunk.blockOffset);
    const bool isSame = found != block->second.chunks.end() && found->second.chunk.sha256 == chunk.sha256 &&
                        found->second.chunk.plainSize == chunk.plainSize;
    return isSame ? &found->second : nullptr;
}

std::map<block_name_t, std::string> CBlockRebuild::Run(SChunkSource source, bool dryRun) {
    std::map<block_name_t, std::string> made;
    for (const auto& [name, block] : blocks_) {
        const std::string path =
            paths::GetBackupBlockPath(source.backupId, source.storageId, paths::DigestToBlockName({name}));
        data_key_ptr key;
        if (block.id.keySetId != crypto::SRawKeySetId()) {
            try {
                key = (source.keys ? *source.keys : CKeyRing()).FindExc(block.id.keySetId);
            } catch (const exc::CRuntimeExc&) {
                continue;  // a key that is lost
            }
        }
        const auto bytes = Download(*source.client, path, block.id.number32);
        if (!Fill(block, key, *bytes) || digest::Md5(*bytes).bytes != name) {
            continue;
        }
        if (!dryRun) {
            source.client->UploadFileAsync(path, bytes)->Wait();
        }
        made.emplace(name, path);
    }
    return made;
}

bool CBlockRebuild::Fill(const SBlock& block, const data_key_ptr& key, std::span<char> bytes) {
    for (const auto& [offset, lost] : block.chunks) {
        if (!ReadPlain(lost) || !Encode(lost.chunk, key, bytes.subspan(offset, lost.chunk.storedSize))) {
            return false;
        }
    }
    return true;
}

/// From the files that look as they did, then from each by itself: one that has changed shall not spoil what another
/// still has.
bool CBlockRebuild::ReadPlain(const SLostChunk& lost) {
    std::vector<const SPiece*> likely;
    std::vector<const SPiece*> others;
    for (const auto& piece : lost.pieces) {
        (CSourceFile(piece.path).IsAsItWas(piece.size, piece.mtime) ? likely : others).push_back(&piece);
    }
    std::vector<const SPiece*> all = likely;
    all.insert(all.end(), others.begin(), others.end());
    if (ReadPieces(lost, all)) {
        return true;
    }
    return std::ranges::any_of(
        all, [&](const SPiece* piece) { return piece->length == lost.chunk.plainSize && ReadPieces(lost, {piece}); });
}

bool CBlockRebuild::ReadPieces(const SLostChunk& lost, const std::vector<const SPiece*>& pieces) {
    const std::span<char> plain = std::span(plain_).first(lost.chunk.plainSize);
    std::vector<bool> isRead(plain.size(), false);
    for (const SPiece* piece : pieces) {
        const auto begin = isRead.begin() + piece->offset;
        const auto end = begin + piece->length;
        if (std::find(begin, end, false) == end) {
            continue;
        }
        std::vector<char> bytes(piece->length);
        if (!CSourceFile(piece->path).Read(piece->fileOffset, bytes)) {
            continue;
        }
        for (std::uint32_t i = 0; i < piece->length; ++i) {
            if (!isRead[piece->offset + i]) {
                plain[piece->offset + i] = bytes[i];
            }
        }
        std::fill(begin, end, true);
    }
    return std::find(isRead.begin(), isRead.end(), false) == isRead.end() && digest::Sha256(plain) == lost.chunk.sha256;
}

/// As the chunk was stored when the block was written.
bool CBlockRebuild::Encode(const SChunk& chunk, const data_key_ptr& key, std::span<char> place) {
    const std::span<const char> plain = std::span(plain_).first(chunk.plainSize);
    SStoredChunk stored = compressor_.Compress(plain, std::span(room_).subspan(sealNonceSize, maxChunkSize));
    if (stored.codec != chunk.codec) {
        return false;
    }
    if (key) {
        stored.bytes =
            sealer_.Seal(key->ChunkKey(chunk.sha256), ChunkNonce(stored, zstdLevel), "", stored.bytes, room_);
    }
    if (stored.bytes.size() != place.size()) {
        return false;
    }
    std::ranges::copy(stored.bytes, place.begin());
    return true;
}

}  // namespace agent
