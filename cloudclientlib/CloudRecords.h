#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "common/digest.h"
#include "common/export.h"

namespace cloudclientlib {

/// Where a store keeps an object.
enum class EStorageTier { standard, infrequentAccess, archive };

/// One entry of a folder's listing.
struct CB_EXPORT SCloudObjectInfo {
    /// The last element of the path.
    std::string name;
    bool isFolder = false;
    /// In bytes; 0 for a folder.
    std::uint64_t size = 0;
    /// When it was last written; the clock's epoch when the store does not say.
    std::chrono::system_clock::time_point modified;
    /// The MD5 of the content, where the store recorded one.
    std::optional<digest::md5_digest_t> md5;
    EStorageTier tier = EStorageTier::standard;
};

/// What a store offers and how much of it is used, in bytes. A store without a limit says `unlimited`.
struct CB_EXPORT SStorageQuota {
    static constexpr std::uint64_t unlimited = ~std::uint64_t{0};
    std::uint64_t total = unlimited;
    std::uint64_t used = 0;

    bool operator==(const SStorageQuota&) const = default;
};

/// How to bring an archived object back.
struct CB_EXPORT SRetrieveArchiveOptions {
    enum class ESpeed { bulk, standard, expedited };
    ESpeed speed = ESpeed::standard;
    /// For how many days the copy stays online.
    unsigned days = 1;
};

/// The state of an object with regard to the archive.
enum class EArchiveRetrievalStatus {
    online,      ///< not archived: it can be read now
    archived,    ///< archived, no retrieval asked for
    inProgress,  ///< asked for, not yet readable
    retrieved,   ///< archived, and readable for a while
};

/// A streaming download. For one thread; letting it go before the end abandons it.
class CB_EXPORT IDownloadStream {
public:
    virtual ~IDownloadStream() = default;
    /// Reads up to `buffer.size()` bytes; 0 only at the end. Throws on failure, also when the object changed meanwhile.
    virtual std::size_t Read(std::span<char> buffer) = 0;
};

/// A streaming upload. For one thread. The object appears, whole, when Finish succeeds; a stream let go before that
/// leaves nothing behind.
class CB_EXPORT IUploadStream {
public:
    virtual ~IUploadStream() = default;
    /// More bytes than the size announced are refused with an exception.
    virtual void Write(std::span<const char> data) = 0;
    /// Throws when fewer bytes than announced were written. After it nothing more may be called.
    virtual void Finish() = 0;
};

}  // namespace cloudclientlib
