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

CMetaState LoadRootMetadata(cloudbackuplib::backup::CCloudBackupSession& session, const SRoot& root,
                            const std::string& localPath, const CKeyRing& keys) {
    session.PrepareStorageForAccess(root.storageId, localPath, LocalMetaVersion(localPath, root));
    SMeta meta = ReadMeta(localPath, keys);
    if (meta.header.storageId != root.storageId || meta.header.sha256.ToAStr() != root.headerSha256) {
        throw exc::CRuntimeExc(
            "The metadata of '%1' (storage %2) in the repository is not the one that its checkpoint "
            "was made with",
            EscapePath(root.path), root.storageId);
    }
    return std::move(meta.state);
}

}  // namespace agent
