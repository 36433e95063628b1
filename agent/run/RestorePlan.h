#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "agent/fs/RestoreTarget.h"
#include "agent/meta/MetaState.h"
#include "agent/model/Entry.h"
#include "agent/run/RestoreFilter.h"
#include "common/digest.h"

namespace agent {

/// What happens to a name of the checkpoint.
enum class EPlanned : std::uint8_t {
    create,   ///< nothing stands there
    replace,  ///< what stands there goes
    keep,     ///< it is there; only its attributes are looked at
    skip,     ///< it stays as it is
};

/// What a restore of a storage does, in which order. Made once from the state, which must outlive it, then only read.
///
/// Each chunk is wanted once, in stream order; beside it stands what of it goes into which file. Large files of the
/// same content as an earlier one are copied from it.
struct SRestorePlan {
    /// Bytes of a file that stands there, as they were when they were looked at.
    struct SLocalRange : SFileRange {
        digest::sha256_digest_t sha256;
    };
    struct SItem {
        CEntryRef name;     ///< in the state
        CPackedView entry;  ///< of a hard link's first name that is restored, the one of the file
        EPlanned planned = EPlanned::create;

        [[nodiscard]] std::string GetPath() const { return std::string(name.GetPath()); }
    };
    struct SFile : SItem {
        /// How many pieces are still to come; 0 for an empty file, a copy, and one that is there but for attributes.
        std::uint32_t pieces = 0;
        std::uint64_t size = 0;
    };
    struct SFolder : SItem {
        /// False for a folder that only leads to what is restored.
        bool isSelected = true;
    };
    struct SPiece {
        std::size_t file;
        std::uint64_t fileOffset;
        std::uint32_t chunkOffset;
        std::uint32_t length;
    };
    struct SWanted {
        const SChunk* chunk;
        std::vector<SPiece> pieces;
    };
    struct SCopy {
        std::size_t file;
        std::size_t original;
    };
    struct SHardLink : SItem {
        CEntryRef existing;  ///< in the state; null for a name of nothing
    };

    std::vector<SFolder> folders;  ///< parents first
    std::vector<SFile> files;
    /// By file, what the one that stands there has already; few have any.
    std::map<std::size_t, std::vector<SLocalRange>> local;
    std::vector<SWanted> wanted;
    std::vector<SCopy> copies;
    std::vector<SItem> others;  ///< symbolic links, fifos, devices
    std::vector<SHardLink> hardLinks;
    std::vector<SItem> kept;  ///< of any type but folders: only attributes
    std::uint64_t skipped = 0;

    /// Chunks that come with the content, and the bytes in the store that are read for them.
    [[nodiscard]] std::uint64_t GetStoredBytes() const;
    /// What the file has already.
    [[nodiscard]] std::span<const SLocalRange> GetLocal(std::size_t file) const;
    /// Of the files that are written.
    [[nodiscard]] std::uint64_t GetBytes() const;
};

/// Looks at what stands in the target.
class IExistingItems {
public:
    virtual ~IExistingItems() = default;
    /// What is to become of that name. For a file that is replaced, `local` gets the pieces of `pieces` that it has.
    virtual EPlanned Judge(const std::string& path, const SEntry& entry,
                           const std::vector<SRestorePlan::SWanted>& pieces,
                           std::vector<SRestorePlan::SLocalRange>& local) = 0;
    /// Whether the file that stands there, and stays as it is, is taken for the entry's own.
    [[nodiscard]] virtual bool IsSameFile(const std::string& path, const SEntry& entry) = 0;
};

/// A file of no more bytes than this, in one piece, is written in one go.
inline constexpr std::uint64_t smallFileSize = std::uint64_t{1} << 20U;

/// Folders above `base`, a folder of the state, are left out. `existing` is null when the target is empty.
[[nodiscard]] SRestorePlan MakeRestorePlan(const CMetaState& state, const CRestoreFilter& filter,
                                           const std::string& base, IExistingItems* existing);

}  // namespace agent
