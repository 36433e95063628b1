#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "agent/keys/KeyRing.h"
#include "agent/model/Entry.h"
#include "common/exc.h"
#include "common/guid.h"

namespace agent {

/// What a run did to one root.
struct SRootStatistics {
    std::uint64_t files = 0;
    std::uint64_t folders = 0;
    std::uint64_t others = 0;
    /// Of all files, holes included.
    std::uint64_t bytes = 0;
    std::uint64_t added = 0;
    std::uint64_t changed = 0;
    std::uint64_t removed = 0;
    std::uint64_t unchanged = 0;
    /// Files read, and their data.
    std::uint64_t filesRead = 0;
    std::uint64_t bytesRead = 0;
    /// Of the bytes read, those that were not known yet, before and after compression.
    std::uint64_t newBytes = 0;
    std::uint64_t storedBytes = 0;
    std::uint64_t blocksUploaded = 0;
    /// Blocks of an interrupted run that were found again.
    std::uint64_t blocksFound = 0;
    /// What could not be read.
    std::uint64_t errors = 0;

    bool operator==(const SRootStatistics&) const = default;
};

/// The statistics with their names, for all that reads, writes, prints or adds them.
using statistics_field_t = std::pair<const char*, std::uint64_t SRootStatistics::*>;
[[nodiscard]] std::span<const statistics_field_t> StatisticsFields();

/// One source root in a checkpoint.
struct SRoot {
    /// The real path that was backed up.
    std::string path;
    guid::guid_t storageId;
    /// The checkpoint whose run last read this root; later ones carry it on as it was.
    std::uint64_t checkpoint = 0;
    /// SHA-256 of the metadata file's header: tells whether a local copy is the very file of this checkpoint.
    std::string headerSha256;
    SRootStatistics statistics;

    bool operator==(const SRoot&) const = default;
};

/// The backup-level document of a checkpoint: when, where and by whom it was made, and of which roots. A plain value.
struct SSetDocument {
    static constexpr int formatVersion = 1;

    std::string host;
    /// Of the system's user whose run it was; empty in documents of before it was kept, as the three that follow.
    std::string user;
    std::string programVersion;
    std::vector<std::string> tags;
    std::string description;
    STime started;
    STime finished;
    std::vector<SRoot> roots;

    [[nodiscard]] const SRoot* FindRoot(const std::string& path) const;

    /// As JSON text.
    [[nodiscard]] std::string ToText() const;
    /// What is not known to this program is passed over, what older ones did not write is empty. Throws
    /// exc::CRuntimeExc for a text that is no such document, or one of a later format version.
    [[nodiscard]] static SSetDocument FromText(const std::string& text);

    bool operator==(const SSetDocument&) const = default;
};

/// A document that may be whole, but is not for this program with these keys: of a later format, sealed with a key that
/// is not on the ring, or not sealed where all are.
class CForeignDocumentExc : public exc::CRuntimeExc {
public:
    using CRuntimeExc::CRuntimeExc;
};

/// Where a document belongs: elsewhere it is not what was sealed.
struct SDocumentPlace {
    guid::guid_t clientId;
    std::string set;
    std::uint64_t checkpoint = 0;
};

/// The document's text as it is stored: as it is, or sealed with the current key where there is one.
[[nodiscard]] std::string StoreDocument(const SSetDocument& document, const SDocumentPlace& place,
                                        const CKeyRing& keys);
/// Throws exc::CRuntimeExc for a text that is no document, and for one that was not sealed for that place. Where the
/// client encrypts, what is not sealed is refused: anyone could have written it.
[[nodiscard]] SSetDocument RestoreDocument(const std::string& text, const SDocumentPlace& place, const CKeyRing& keys);

/// The storage that keeps a root: the same for the same client, set and path, so that a run that was cut off before its
/// first checkpoint finds its blocks again. With a key it tells nobody without it which path it stands for.
[[nodiscard]] guid::guid_t StorageIdOf(const guid::guid_t& clientId, const std::string& set, const std::string& path,
                                       const data_key_ptr& key = {});

/// "2026-11-21T08:00:00Z", and back.
[[nodiscard]] std::string ToIsoText(const STime& time);
[[nodiscard]] STime Now();

/// Paths are bytes while JSON and terminals want UTF-8: bytes that are none are written as "\xHH", a backslash as "\\".
[[nodiscard]] std::string EscapePath(const std::string& path);
[[nodiscard]] std::string UnescapePath(const std::string& text);

}  // namespace agent
