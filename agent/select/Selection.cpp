#include "agent/select/Selection.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "common/exc.h"
#include "common/posix.h"

namespace agent {

namespace {

// A pattern file is written by a person.
constexpr std::size_t largestPatternFile = std::size_t{1} << 20U;

std::string Join(const std::string& folder, const std::string& name) {
    return folder.empty() ? name : folder + "/" + name;
}

std::string_view NameOf(std::string_view path) { return path.substr(path.find_last_of('/') + 1); }

/// The begin of a regular file; nothing for what is none.
std::optional<std::string> ReadBegin(int folderFd, const std::string& name, const std::string& path, std::size_t size) {
    posix::fd_t fd(::openat(folderFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!fd && (errno == ELOOP || errno == ENXIO || errno == ENOENT)) {  // a link, a socket, gone
        return std::nullopt;
    }
    struct stat info {};
    if (!fd || ::fstat(fd.Get(), &info) != 0) {
        throw posix::CPosixExc("read", path, errno);
    }
    if (!S_ISREG(info.st_mode)) {
        return std::nullopt;
    }
    std::string text(std::min(size, static_cast<std::size_t>(info.st_size)), '\0');
    text.resize(posix::posix_file_t(std::move(fd), path).Read(text.data(), text.size()));
    return text;
}

CPattern ParseRule(const SPatternRule& rule) {
    auto pattern = CPattern::Parse(rule.pattern, rule.letters);
    if (!pattern) {
        throw exc::CRuntimeExc("'%1' is no pattern: blank lines and comments mean nothing ('\\#' begins a name with #)",
                               rule.pattern);
    }
    if (rule.include) {
        if (pattern->IsNegated()) {
            throw exc::CRuntimeExc("'%1' takes back what is taken back: leave the '!' away", rule.pattern);
        }
        pattern->Negate();
    }
    return *std::move(pattern);
}

/// A pattern that begins with the source's full path means what lies there, not a path of the same name inside.
std::string WithoutRoot(const std::string& pattern, const std::string& root) {
    const std::size_t sign = pattern.starts_with('!') ? 1 : 0;
    const std::string_view text = std::string_view(pattern).substr(sign);
    if (root.size() > 1 && text.size() > root.size() + 1 && text.starts_with(root) && text[root.size()] == '/') {
        return pattern.substr(0, sign) + std::string(text.substr(root.size()));
    }
    return pattern;
}

}  // namespace

SMarker CacheMarker() { return {"CACHEDIR.TAG", "Signature: 8a477f597d28d172789f06886806bc55"}; }

void CheckPatterns(const SSelection& selection) {
    for (const auto& rule : selection.patterns) {
        (void)ParseRule(rule);
    }
}

CSelector::CSelector(const SSelection& selection, const std::string& root, const CPathTree* wanted,
                     failure_sink_t onFailure)
    : selection_(selection), wanted_(wanted), onFailure_(std::move(onFailure)) {
    for (const auto& rule : selection.patterns) {
        patterns_.Add(ParseRule({WithoutRoot(rule.pattern, root), rule.include, rule.letters}));
    }
}

bool CSelector::Takes(const SSourceItem& item) {
    const bool isFolder = item.entry.type == EEntryType::directory;
    const bool isFile = item.entry.type == EEntryType::file;
    if (IsLeftOut(item.path, isFolder) || (isFile && item.entry.size > selection_.largestFile.value_or(UINT64_MAX))) {
        return false;
    }
    // A folder of another file system is kept, empty: a restored tree has what to mount it on.
    return isFolder || frames_.back().node != nullptr || !IsBorder(item);
}

bool CSelector::TakesUnseen(const std::string& path) { return !IsLeftOut(path, false) && !IsLeftOut(path, true); }

bool CSelector::IsLeftOut(std::string_view path, bool isFolder) const {
    const std::string_view name = NameOf(path);
    EVerdict verdict = patterns_.Judge(path, name, isFolder);
    for (auto frame = frames_.rbegin(); frame != frames_.rend() && verdict == EVerdict::none; ++frame) {
        if (!frame->ignored.IsEmpty()) {
            verdict = frame->ignored.Judge(path.substr(frame->pathSize), name, isFolder);
        }
    }
    return verdict == EVerdict::leave;
}

bool CSelector::IsBorder(const SSourceItem& item) const {
    return selection_.oneFileSystem && !frames_.empty() && item.entry.device != frames_.back().device;
}

/// The node of a folder that is about to be entered.
const CPathTree::SNode* CSelector::NodeOf(const SSourceItem& folder) const {
    const CPathTree::SNode* node = wanted_ != nullptr ? &wanted_->GetRoot() : nullptr;
    if (!frames_.empty()) {
        const auto* parent = frames_.back().node;
        node = parent != nullptr ? parent->children.at(folder.name).get() : nullptr;
    }
    return node != nullptr && !node->isWhole ? node : nullptr;
}

std::optional<std::vector<std::string>> CSelector::NamesOf(const SSourceItem& folder) {
    if (const auto* node = NodeOf(folder)) {
        return CPathTree::NamesOf(*node);
    }
    const bool leadsHere = frames_.empty() || frames_.back().node != nullptr;
    if (!leadsHere && IsBorder(folder)) {
        return std::vector<std::string>();
    }
    return std::nullopt;
}

CSelector::SFrame CSelector::MakeFrame(const SSourceItem& item) const {
    SFrame frame;
    frame.node = NodeOf(item);
    // What the user named is on the file system where it is.
    const bool isNamed = frames_.empty() || frames_.back().node != nullptr;
    frame.device = isNamed ? item.entry.device : frames_.back().device;
    frame.pathSize = item.path.empty() ? 0 : item.path.size() + 1;
    return frame;
}

void CSelector::EnterFolder(const SSourceItem& item, int folderFd, std::vector<std::string>& names) {
    SFrame frame = MakeFrame(item);
    if (frame.node == nullptr) {
        KeepMarkersOnly(item.path, folderFd, names);
        ReadIgnoreFiles(frame, item.path, folderFd, names);
    }
    frames_.push_back(std::move(frame));
}

void CSelector::KeepMarkersOnly(const std::string& path, int folderFd, std::vector<std::string>& names) const {
    std::vector<std::string> found;
    for (const auto& marker : selection_.markers) {
        const bool isThere = std::binary_search(names.begin(), names.end(), marker.name);
        if (isThere && IsMarker(marker, Join(path, marker.name), folderFd)) {
            found.push_back(marker.name);
        }
    }
    if (!found.empty()) {
        std::sort(found.begin(), found.end());
        found.erase(std::unique(found.begin(), found.end()), found.end());
        names = std::move(found);
    }
}

bool CSelector::IsMarker(const SMarker& marker, const std::string& path, int folderFd) const {
    if (marker.header.empty()) {
        return true;
    }
    try {
        return ReadBegin(folderFd, marker.name, path, marker.header.size()) == marker.header;
    } catch (const posix::CPosixExc& failure) {
        onFailure_(path, failure);
        return false;
    }
}

void CSelector::ReadIgnoreFiles(SFrame& frame, const std::string& path, int folderFd,
                                const std::vector<std::string>& names) {
    for (const auto& name : selection_.ignoreFiles) {
        if (!std::binary_search(names.begin(), names.end(), name)) {
            continue;
        }
        try {
            const std::string text = ReadBegin(folderFd, name, Join(path, name), largestPatternFile + 1).value_or("");
            if (text.size() > largestPatternFile) {
                throw exc::CRuntimeExc("it has more than %1 bytes, so none of its patterns counts", largestPatternFile);
            }
            frame.ignored.AddLines(text);
        } catch (const exc::CExc& failure) {
            onFailure_(Join(path, name), failure);
        }
    }
}

}  // namespace agent
