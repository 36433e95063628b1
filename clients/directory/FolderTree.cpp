#include "clients/directory/FolderTree.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace clients::directory {

using posix::CPosixExc;
using posix::fd_t;

namespace {

struct SCloseDir {
    void operator()(DIR* folder) const { ::closedir(folder); }
};
using dir_ptr = std::unique_ptr<DIR, SCloseDir>;

/// A second descriptor is needed, since reading a folder takes its descriptor over for good.
dir_ptr OpenDir(const fd_t& folder, const std::string& relative) {
    fd_t copy(::fcntl(folder.Get(), F_DUPFD_CLOEXEC, 0));
    if (!copy) {
        throw CPosixExc("read the folder", relative, errno);
    }
    dir_ptr dir(::fdopendir(copy.Get()));
    if (!dir) {
        throw CPosixExc("read the folder", relative, errno);
    }
    copy.Release();
    return dir;
}

EEntry KindOfMode(mode_t mode) {
    if (S_ISDIR(mode)) {
        return EEntry::folder;
    }
    return S_ISREG(mode) ? EEntry::object : EEntry::foreign;
}

/// Nothing when the entry vanished meanwhile.
std::optional<EEntry> KindOf(int folder, const dirent& entry) {
    if (entry.d_type == DT_UNKNOWN) {
        const auto info = StatElement(folder, entry.d_name);
        return info ? std::optional(KindOfMode(info->st_mode)) : std::nullopt;
    }
    return KindOfMode(DTTOIF(entry.d_type));
}

std::string Join(const std::string& folder, const std::string& name) {
    return folder.empty() ? name : folder + '/' + name;
}

/// Tells progress how many objects are gone of those seen.
class CDeletionProgress {
public:
    explicit CDeletionProgress(progress::progress_base_t* sink) : sink_(sink) {}

    void AddSeen(std::uint64_t objects) { seen_ += objects; }
    void AddDeleted() {
        ++deleted_;
        if (sink_ != nullptr) {
            sink_->SetProgress(deleted_, seen_);
        }
    }

private:
    progress::progress_base_t* sink_;
    std::uint64_t seen_ = 0;
    std::uint64_t deleted_ = 0;
};

void DeleteEntries(const SFolderContent& content, const std::string& relative, CDeletionProgress& progress) {
    progress.AddSeen(static_cast<std::uint64_t>(std::ranges::count(content.entries, EEntry::object, &SEntry::kind)));
    for (const auto& entry : content.entries) {
        if (entry.kind == EEntry::folder) {
            continue;
        }
        if (::unlinkat(content.folder.Get(), entry.name.c_str(), 0) != 0 && errno != ENOENT) {
            throw CPosixExc("delete", Join(relative, entry.name), errno);
        }
        if (entry.kind == EEntry::object) {
            progress.AddDeleted();
        }
    }
}

void DeleteEmptyFolder(const CBeneathRoot& root, const std::string& relative) {
    const auto slash = relative.rfind('/');
    const std::string parent = slash == std::string::npos ? "" : relative.substr(0, slash);
    const std::string name = slash == std::string::npos ? relative : relative.substr(slash + 1);
    const fd_t folder = root.TryOpen(parent, O_PATH | O_DIRECTORY);
    if (!folder || ::unlinkat(folder.Get(), name.c_str(), AT_REMOVEDIR) == 0) {
        return;
    }
    if (errno != ENOENT && errno != ENOTDIR && errno != ENOTEMPTY && errno != EEXIST) {
        throw CPosixExc("delete the folder", relative, errno);
    }
}

}  // namespace

std::optional<SFolderContent> ReadFolder(const CBeneathRoot& root, const std::string& relative) {
    SFolderContent content{root.TryOpen(relative, O_RDONLY | O_DIRECTORY), {}};
    if (!content.folder) {
        return std::nullopt;
    }
    const dir_ptr dir = OpenDir(content.folder, relative);
    while (true) {
        errno = 0;
        const dirent* entry = ::readdir(dir.get());  // NOLINT(concurrency-mt-unsafe): the stream is this call's own
        if (entry == nullptr) {
            break;
        }
        const std::string_view name = entry->d_name;
        if (name == "." || name == ".." || (relative.empty() && name == tempFolderName)) {
            continue;
        }
        if (const auto kind = KindOf(content.folder.Get(), *entry)) {
            content.entries.push_back({std::string(name), *kind});
        }
    }
    if (errno != 0 && errno != ENOENT) {  // ENOENT: the folder itself was deleted meanwhile
        throw CPosixExc("read the folder", relative, errno);
    }
    return content;
}

void WalkFolders(const CBeneathRoot& root, const std::string& relative,
                 const std::function<void(const std::string&, const SFolderContent&)>& visit) {
    std::vector<std::string> pending{relative};
    while (!pending.empty()) {
        const std::string folder = std::move(pending.back());
        pending.pop_back();
        const auto content = ReadFolder(root, folder);
        if (!content) {
            continue;
        }
        for (const auto& entry : content->entries) {
            if (entry.kind == EEntry::folder) {
                pending.push_back(Join(folder, entry.name));
            }
        }
        visit(folder, *content);
    }
}

void DeleteTree(const CBeneathRoot& root, const std::string& relative, progress::progress_base_t* progress) {
    CDeletionProgress deleted(progress);
    std::vector<std::string> folders;
    WalkFolders(root, relative, [&](const std::string& folder, const SFolderContent& content) {
        folders.push_back(folder);
        DeleteEntries(content, folder, deleted);
    });
    std::for_each(folders.rbegin(), folders.rend(), [&](const std::string& folder) {
        if (!folder.empty()) {
            DeleteEmptyFolder(root, folder);
        }
    });
}

STreeTotals CountTree(const CBeneathRoot& root, const std::string& relative) {
    STreeTotals totals;
    WalkFolders(root, relative, [&](const std::string&, const SFolderContent& content) {
        for (const auto& entry : content.entries) {
            const auto info =
                entry.kind == EEntry::object ? StatElement(content.folder.Get(), entry.name) : std::nullopt;
            if (info && S_ISREG(info->st_mode)) {
                ++totals.objects;
                totals.bytes += static_cast<std::uint64_t>(info->st_size);
            }
        }
    });
    return totals;
}

}  // namespace clients::directory
