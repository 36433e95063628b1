#include "agent/look/FindRun.h"

#include <map>

#include "agent/look/StateDiff.h"
#include "agent/look/Versions.h"
#include "agent/select/PathScope.h"

namespace agent {

namespace {

/// Finds in the versions of one storage.
class CStorageFind {
public:
    CStorageFind(const CPathPatterns& patterns, const SEntryFilter& filter) : patterns_(patterns), filter_(filter) {}

    void AddVersion(const SRootVersion& version, const CMetaState& state) {
        for (const auto& [path, packed] : state.GetEntries()) {
            const std::string fullPath = FullPath(version.root.path, path);
            if (!patterns_.Matches(fullPath, packed.GetType() == EEntryType::directory)) {
                continue;
            }
            SEntry entry = packed.Unpack();
            if (Matches(filter_, entry)) {
                AddEntry(std::string(path), state, std::move(entry), version.checkpoints);
            }
        }
    }

    void Report(const std::string& root, const found_sink_t& sink) const {
        for (const auto& [path, versions] : found_) {
            std::vector<SFound> list;
            list.reserve(versions.size());
            for (const auto& version : versions) {
                list.push_back(version.found);
            }
            sink(root, FullPath(root, path), list);
        }
    }

private:
    struct SVersion {
        digest::sha256_digest_t content;
        SFound found;
    };

    static bool IsSame(const SEntry& a, const SEntry& b) {
        return a.type == b.type && a.size == b.size && a.target == b.target && a.rdev == b.rdev &&
               DescribeAttributes(a, b).empty();
    }

    void AddEntry(const std::string& path, const CMetaState& state, SEntry entry,
                  const std::vector<std::uint64_t>& checkpoints) {
        const auto content = ContentKey(state, entry);
        entry.segments.clear();
        entry.xattrs.clear();
        auto& versions = found_[path];
        if (versions.empty() || versions.back().content != content || !IsSame(versions.back().found.entry, entry)) {
            versions.push_back({content, {std::move(entry), {}}});
        }
        auto& known = versions.back().found.checkpoints;
        known.insert(known.end(), checkpoints.begin(), checkpoints.end());
    }

    const CPathPatterns& patterns_;
    const SEntryFilter& filter_;
    std::map<std::string, std::vector<SVersion>, SPathLess> found_;
};

}  // namespace

void FindEntries(COpenedCheckpoint& opened, const std::vector<SCheckpointInfo>& checkpoints,
                 const CPathPatterns& patterns, const SEntryFilter& filter, const found_sink_t& sink) {
    const auto versions = ListVersions(checkpoints);
    for (std::size_t i = 0; i < versions.size();) {
        CStorageFind find(patterns, filter);
        const SRoot& root = versions[i].root;
        for (; i < versions.size() && versions[i].root.storageId == root.storageId; ++i) {
            opened.SwitchTo(std::to_string(versions[i].checkpoints.front()));
            find.AddVersion(versions[i], opened.LoadMetadata(versions[i].root));
        }
        find.Report(root.path, sink);
    }
}

}  // namespace agent
