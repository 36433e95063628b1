#include "agent/run/RootMetadata.h"

#include <unistd.h>

#include <random>

#include "common/exc.h"
#include "common/logging.h"

namespace agent {

namespace {

constexpr unsigned runBits = 24;

}  // namespace

std::uint64_t MakeMetaVersion(std::uint64_t checkpoint) {
    std::random_device random;
    return (checkpoint << runBits) | (random() & ((1U << runBits) - 1));
}

std::uint64_t MakeMetaVersionBeside(std::uint64_t version) {
    const std::uint64_t made = MakeMetaVersion(version >> runBits);
    return made == 0 ? 1 : made;  // none has 0
}

std::string LocalMetaPath(const std::string& setFolder, const guid::guid_t& storageId) {
    return setFolder + "/" + storageId.ToAStr() + ".meta";
}

unsigned long LocalMetaVersion(const std::string& localPath, const SRoot& root) {
    if (::access(localPath.c_str(), F_OK) != 0) {
        return 0;
    }
    try {
        const SMetaHeader header = ReadMetaHeader(localPath);
        const bool same = header.sha256.ToAStr() == root.headerSha256 && IsIntact(localPath, header.version);
        return same ? header.version : 0;
    } catch (const std::exception& failure) {
        logging::Storage().Info("Local metadata '%1' is not usable and will be downloaded: %2", localPath,
                                failure.what());
        return 0;
    }
}

namespace {

/// `version` is the one that the local file holds; 0 downloads.
CMetaState LoadVersion(cloudbackuplib::backup::CCloudBackupSession& session, const SRoot& root,
                       const std::string& localPath, const CKeyRing& keys, unsigned long version) {
    session.PrepareStorageForAccess(root.storageId, localPath, version);
    SMeta meta = ReadMeta(localPath, keys);
    if (meta.header.storageId != root.storageId || meta.header.sha256.ToAStr() != root.headerSha256) {
        throw exc::CRuntimeExc(
            "The metadata of '%1' (storage %2) in the repository is not the one that its checkpoint "
            "was made with",
            EscapePath(root.path), root.storageId);
    }
    return std::move(meta.state);
}

}  // namespace

CMetaState LoadRootMetadata(cloudbackuplib::backup::CCloudBackupSession& session, const SRoot& root,
                            const std::string& localPath, const CKeyRing& keys) {
    return LoadVersion(session, root, localPath, keys, LocalMetaVersion(localPath, root));
}

CMetaState LoadRootMetadata4Read(cloudbackuplib::backup::CCloudBackupSession& session, const SRoot& root,
                                 const std::string& setFolder, const std::string& scratchFolder, const CKeyRing& keys) {
    const std::string path = LocalMetaPath(scratchFolder, root.storageId);
    // A name of its own for the copy: a run renames the next version over the other one.
    const std::string own = path + ".own";
    ::unlink(own.c_str());
    if (::link(LocalMetaPath(setFolder, root.storageId).c_str(), own.c_str()) == 0) {
        if (const auto version = LocalMetaVersion(own, root); version != 0) {
            return LoadVersion(session, root, own, keys, version);
        }
    }
    return LoadRootMetadata(session, root, path, keys);
}

}  // namespace agent
