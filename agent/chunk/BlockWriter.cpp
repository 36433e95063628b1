#include "agent/chunk/BlockWriter.h"

#include <utility>

#include "cloudbackuplib/CloudPaths.h"
#include "cloudclientlib/CloudExc.h"
#include "common/exc.h"
#include "common/logging.h"

namespace agent {

namespace paths = cloudbackuplib::backup::paths;

namespace {

/// More collisions than that are no accident and no attack that gains anything: something is wrong with the store.
constexpr int mostNames = 16;

}  // namespace

/// A number's turn to take a name. Passed on when the object goes, whatever has happened.
class CBlockWriter::CTurn {
public:
    CTurn(CBlockWriter& writer, std::size_t number) : writer_(writer), number_(number) {}
    CTurn(const CTurn&) = delete;
    CTurn& operator=(const CTurn&) = delete;
    ~CTurn() {
        Await();
        const std::lock_guard lock(writer_.mutex_);
        ++writer_.turn_;
        writer_.turnPassed_.notify_all();
    }
    void Await() {
        std::unique_lock lock(writer_.mutex_);
        writer_.turnPassed_.wait(lock, [this] { return writer_.turn_ == number_; });
    }

private:
    CBlockWriter& writer_;
    const std::size_t number_;
};

CBlockWriter::CBlockWriter(SBlockTarget target) : target_(std::move(target)) {}

void CBlockWriter::Open() {
    const std::string store = target_.storageId.ToAStr();
    mayExist_ = target_.client->IsFolderExist(paths::GetBackupBlockFolder(target_.backupId, store));
}

SWrittenBlock CBlockWriter::Write(std::size_t number, const buffer_ptr& block) {
    SName name = NameInTurn(number, *block);
    for (int i = 0; i < mostNames; ++i) {
        const std::string path =
            paths::GetBackupBlockPath(target_.backupId, target_.storageId, paths::DigestToBlockName(name.md5));
        const EFound found = name.isFree ? Find(path, *block) : EFound::other;
        if (found != EFound::other) {
            if (found == EFound::nothing) {
                target_.client->UploadFileAsync(path, block)->Wait();
            }
            const auto size = static_cast<std::uint32_t>(block->size());
            return {{name.md5.bytes, target_.keySetId, size, target_.runVersion}, found == EFound::equal};
        }
        logging::Storage().Warn("Block '%1' is not stored under this name: another object bears it.", path);
        block->push_back('\0');
        name = Name(*block);
    }
    throw exc::CRuntimeExc("A block cannot be stored: its name and %1 others are taken, the last one '%2'.",
                           mostNames - 1, paths::DigestToBlockName(name.md5));
}

CBlockWriter::SName CBlockWriter::NameInTurn(std::size_t number, const cnt::array_t<char>& block) {
    CTurn turn(*this, number);
    const digest::md5_digest_t md5 = digest::Md5(block);
    turn.Await();
    const std::lock_guard lock(mutex_);
    return {md5, taken_.insert(md5).second};
}

CBlockWriter::SName CBlockWriter::Name(const cnt::array_t<char>& block) {
    const digest::md5_digest_t md5 = digest::Md5(block);
    const std::lock_guard lock(mutex_);
    return {md5, taken_.insert(md5).second};
}

/// What lies under the name. One download tells both whether an object is there and what it holds.
CBlockWriter::EFound CBlockWriter::Find(const std::string& path, const cnt::array_t<char>& block) {
    if (!mayExist_) {
        return EFound::nothing;
    }
    const auto object = std::make_shared<cnt::array_t<char>>();
    try {
        // A byte more than the block has: enough to see that the object is longer, however long it is.
        target_.client->DownloadFileAsync(path, object, 0, block.size() + 1)->Wait();
        return *object == block ? EFound::equal : EFound::other;
    } catch (const cloudclientlib::CObjectNotFoundExc&) {
        return EFound::nothing;
    } catch (const cloudclientlib::CCloudExc& failure) {
        using cloudclientlib::EFailure;
        // Archived or damaged: it cannot be compared, so it is not taken.
        if (failure.GetKind() == EFailure::conflict || failure.GetKind() == EFailure::corrupt) {
            return EFound::other;
        }
        throw;
    }
}

}  // namespace agent
