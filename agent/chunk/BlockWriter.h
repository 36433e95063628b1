#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include "cloudbackuplib/BlockExternalId.h"
#include "cloudclientlib/ICloudClient.h"
#include "common/guid.h"

namespace agent {

/// Where blocks go, and what their ids say of the run.
struct SBlockTarget {
    std::shared_ptr<cloudclientlib::ICloudClient> client;
    std::string backupId;
    guid::guid_t storageId;
    std::uint64_t runVersion = 0;
    /// The key that the chunks are sealed with; zero for none.
    crypto::SRawKeySetId keySetId = {};
};

/// A block that is in the store.
struct SWrittenBlock {
    cloudbackuplib::backup::SBlockExternalId id;
    bool isFound = false;  ///< an equal object was there already
};

/// Brings blocks to the store, under the MD5 of their bytes.
///
/// MD5 collides when somebody wants it to: no object is overwritten and none is taken for a block before it is
/// compared with it. A name that is taken by other bytes, in the store or in this run, gives the block one more zero
/// byte at its end and so another name. Where the storage had no blocks at all when the run began, there is nothing to
/// ask for.
///
/// Write may be called from many threads, once for every number from 0 on; calls are started in the order of their
/// numbers, since a number waits until the one before has its name: so names do not depend on timing. Failures of the
/// client pass through; nothing is in flight then.
class CBlockWriter {
public:
    using buffer_ptr = std::shared_ptr<cnt::array_t<char>>;

    explicit CBlockWriter(SBlockTarget target);

    /// Asks whether the storage has blocks; before the first Write.
    void Open();
    /// Returns when the block is in the store. The block may get padding.
    [[nodiscard]] SWrittenBlock Write(std::size_t number, const buffer_ptr& block);

private:
    enum class EFound { nothing, equal, other };
    class CTurn;
    struct SName {
        digest::md5_digest_t md5;
        bool isFree = false;  ///< of names of this run
    };

    SName NameInTurn(std::size_t number, const cnt::array_t<char>& block);
    SName Name(const cnt::array_t<char>& block);
    EFound Find(const std::string& path, const cnt::array_t<char>& block);

    const SBlockTarget target_;
    bool mayExist_ = true;  // constant after Open

    std::mutex mutex_;
    std::condition_variable turnPassed_;
    std::size_t turn_ = 0;                  // guarded by mutex_
    std::set<digest::md5_digest_t> taken_;  // guarded by mutex_
};

}  // namespace agent
