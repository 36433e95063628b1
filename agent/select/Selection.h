#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent/fs/TreeWalker.h"
#include "agent/select/PathTree.h"
#include "agent/select/PatternList.h"

namespace agent {

/// A line that leaves names out, or takes them back (include).
struct SPatternRule {
    std::string pattern;
    bool include = false;
    ECase letters = ECase::exact;
};

/// A file whose presence says that its folder's content is not to be kept.
struct SMarker {
    std::string name;
    /// What the file must begin with; empty for any file of the name.
    std::string header;
};

/// The marker of the Cache Directory Tagging Specification (https://bford.info/cachedir/).
[[nodiscard]] SMarker CacheMarker();

/// What of the sources is kept, as the user says it. A plain value.
struct SSelection {
    /// From a source's root on; a pattern that begins with the source's full path too. The last that matches decides.
    std::vector<SPatternRule> patterns;
    /// Names of pattern files that count in the folders where they lie, and below.
    std::vector<std::string> ignoreFiles;
    std::vector<SMarker> markers;
    bool oneFileSystem = false;
    /// Files of more bytes are left out.
    std::optional<std::uint64_t> largestFile;
};

/// Throws exc::CRuntimeExc for a pattern that is blank or a comment.
void CheckPatterns(const SSelection& selection);

/// Applies a selection to the walk over one source.
///
/// The source's root is always taken. A folder that is left out is not entered, so nothing in it can be taken back. The
/// patterns of the user go before those of ignore files, deeper ignore files before higher ones. A folder with a marker
/// is kept with the marker and nothing else, one of another file system is kept empty. For the walk's thread; the path
/// tree must outlive it. An ignore file or marker that cannot be read, and an ignore file of more than 1 MiB, is told
/// to the sink and does not count.
class CSelector : public ITreeFilter {
public:
    using failure_sink_t = std::function<void(const std::string& path, const std::exception& failure)>;

    /// `wanted` are the paths that alone are kept; null for all.
    CSelector(const SSelection& selection, const std::string& root, const CPathTree* wanted, failure_sink_t onFailure);

    [[nodiscard]] bool Takes(const SSourceItem& item) override;
    [[nodiscard]] bool TakesUnseen(const std::string& path) override;
    [[nodiscard]] std::optional<std::vector<std::string>> NamesOf(const SSourceItem& folder) override;
    void EnterFolder(const SSourceItem& item, int folderFd, std::vector<std::string>& names) override;
    void LeaveFolder() override { frames_.pop_back(); }

private:
    struct SFrame {
        std::uint64_t device = 0;
        /// Of which only some names are wanted; null for a folder that is wanted whole.
        const CPathTree::SNode* node = nullptr;
        /// Of the folder's ignore files, from the folder on.
        CPatternList ignored;
        /// How much of a path leads to the folder.
        std::size_t pathSize = 0;
    };

    [[nodiscard]] bool IsLeftOut(std::string_view path, bool isFolder) const;
    [[nodiscard]] const CPathTree::SNode* NodeOf(const SSourceItem& folder) const;
    [[nodiscard]] bool IsBorder(const SSourceItem& folder) const;
    [[nodiscard]] SFrame MakeFrame(const SSourceItem& item) const;
    void KeepMarkersOnly(const std::string& path, int folderFd, std::vector<std::string>& names) const;
    [[nodiscard]] bool IsMarker(const SMarker& marker, const std::string& path, int folderFd) const;
    void ReadIgnoreFiles(SFrame& frame, const std::string& path, int folderFd, const std::vector<std::string>& names);

    const SSelection& selection_;
    const CPathTree* const wanted_;
    const failure_sink_t onFailure_;
    CPatternList patterns_;
    std::vector<SFrame> frames_;
};

}  // namespace agent
