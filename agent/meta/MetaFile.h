#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/keys/KeyRing.h"
#include "agent/meta/MetaHeader.h"
#include "agent/meta/MetaState.h"
#include "cloudbackuplib/MetaLocationDescr.h"
#include "common/guid.h"
#include "common/stg_extent.h"

/// The metadata file of a storage: read, written, checked. docs/format/metadata-file.md describes it byte by byte.
///
/// Operations are independent of each other and may run in any thread, each on files of its own. Failures are
/// exc::CRuntimeExc that name the file and what is wrong.
namespace agent {

struct SMeta {
    SMetaHeader header;
    CMetaState state;
};

/// The header alone; the banks are not looked at.
[[nodiscard]] SMetaHeader ReadMetaHeader(const std::string& path);

/// The whole metadata. The bytes may come from anyone: what is returned holds together in all that its types promise,
/// and memory grows with the bytes that are really there, not with what they claim. `keys` open what is sealed.
[[nodiscard]] SMeta ReadMeta(const std::string& path, const CKeyRing& keys = {});
/// `name` stands for the extent in messages.
[[nodiscard]] SMeta ReadMeta(io::stg::IStgExtent& extent, const std::string& name, const CKeyRing& keys = {});

/// Whether the file holds this version, whole and with every byte as it was written. What is wrong is logged.
[[nodiscard]] bool IsIntact(const std::string& path, std::uint64_t version);

/// Where the parts of a metadata file lie, in bytes.
struct SMetaLayout {
    struct SBank {
        std::uint64_t offset = 0;
        std::uint64_t size = 0;
        bool isNew = false;

        bool operator==(const SBank&) const = default;
    };

    std::uint64_t version = 0;
    std::uint64_t headerSize = 0;
    std::vector<SBank> banks;
    /// The file was written anew, without what is dead: every bank is new.
    bool isRewritten = false;

    bool operator==(const SMetaLayout&) const = default;
};

struct SMetaTarget {
    /// The file that the state was read from or last written to; none for a storage's first version.
    std::optional<std::string> oldPath;
    /// Another file, best beside it; replaced when it exists.
    std::string newPath;
    guid::guid_t storageId;
    /// Higher than the old file's.
    std::uint64_t version = 0;
    /// What the banks are sealed with; none for no encryption.
    data_key_ptr key = {};
};

/// Writes the next version: the old file's banks and behind them what changed; or, when dead records outweigh the live
/// ones, the bank table is full, or the old banks are sealed otherwise, only what is live.
///
/// `state` is what the old file says and becomes, exactly, what the new file says (after a rewrite blocks have new
/// places in the table). When it throws, there is no new file, and the state is to be let go.
///
/// The file is not synced: it is a copy of what a commit puts into the cloud. One that a power cut damages is no longer
/// intact and gets downloaded again. It should take the old file's name only once its version is committed.
SMetaLayout WriteMeta(const SMetaTarget& target, CMetaState& state, SMetaChanges changes);

/// What a writer reports to IMetaUpdateSink::Update.
struct SPartsMaps {
    cloudbackuplib::backup::parts_map_t updatedParts;
    cloudbackuplib::backup::parts_map_t metaParts;
};

/// All banks as parts that are skipped unless updated, the new ones as updated. The header is not among them: the
/// session uploads it always.
[[nodiscard]] SPartsMaps MakePartsMaps(const SMetaLayout& layout);

}  // namespace agent
