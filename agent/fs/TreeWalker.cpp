#include "agent/fs/TreeWalker.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <vector>

namespace agent {

namespace {

struct SCloseDir {
    void operator()(DIR* dir) const { ::closedir(dir); }
};

posix::fd_t OpenFolder(int parentFd, const std::string& name, int flags, const std::string& path) {
    constexpr int common = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    posix::fd_t fd(::openat(parentFd, name.c_str(), common | flags | O_NOATIME));
    if (!fd && errno == EPERM) {
        fd = posix::fd_t(::openat(parentFd, name.c_str(), common | flags));
    }
    if (!fd) {
        throw posix::CPosixExc("open the folder", path, errno);
    }
    return fd;
}

std::vector<std::string> ReadNames(const posix::fd_t& folder, const std::string& path) {
    // The stream takes its descriptor over, the folder's own stays for what lies in it.
    const int copy = ::fcntl(folder.Get(), F_DUPFD_CLOEXEC, 0);
    const std::unique_ptr<DIR, SCloseDir> dir(copy < 0 ? nullptr : ::fdopendir(copy));
    if (!dir) {
        const int error = errno;
        if (copy >= 0) {
            ::close(copy);
        }
        throw posix::CPosixExc("read the folder", path, error);
    }
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* entry = ::readdir(dir.get())) {  // NOLINT: each stream is read by one thread
        std::string name = entry->d_name;
        if (name != "." && name != "..") {
            names.push_back(std::move(name));
        }
        errno = 0;
    }
    if (errno != 0) {
        throw posix::CPosixExc("read the folder", path, errno);
    }
    std::sort(names.begin(), names.end());
    return names;
}

class CWalk {
public:
    CWalk(ITreeVisitor& visitor, ITreeFilter* filter) : visitor_(visitor), filter_(filter) {}

    /// The folder itself has been visited already.
    void VisitContent(const SSourceItem& item, const posix::fd_t& folder, std::vector<std::string> names) {
        if (filter_ != nullptr) {
            filter_->EnterFolder(item, folder.Get(), names);
        }
        const std::string prefix = item.path.empty() ? "" : item.path + "/";
        for (const auto& name : names) {
            VisitName(folder, name, prefix + name);
        }
        if (filter_ != nullptr) {
            filter_->LeaveFolder();
        }
    }

    [[nodiscard]] std::optional<std::vector<std::string>> NamesOf(const SSourceItem& folder) const {
        return filter_ == nullptr ? std::nullopt : filter_->NamesOf(folder);
    }

private:
    void VisitName(const posix::fd_t& folder, const std::string& name, const std::string& path) {
        SSourceItem item;
        try {
            item = StatItem(folder.Get(), name, path);
        } catch (const posix::CPosixExc& failure) {
            if (filter_ == nullptr || filter_->TakesUnseen(path)) {
                visitor_.OnError(path, false, failure);
            }
            return;
        }
        if (filter_ != nullptr && !filter_->Takes(item)) {
            return;
        }
        visitor_.OnItem(item);
        if (item.entry.type == EEntryType::directory) {
            VisitFolder(folder, item);
        }
    }

    void VisitFolder(const posix::fd_t& parent, const SSourceItem& item) {
        auto known = NamesOf(item);
        if (known && known->empty()) {
            return;
        }
        posix::fd_t folder;
        std::vector<std::string> names;
        try {
            folder = OpenFolder(parent.Get(), item.name, O_NOFOLLOW | (known ? O_PATH : 0), item.path);
            names = known ? *std::move(known) : ReadNames(folder, item.path);
        } catch (const posix::CPosixExc& failure) {
            visitor_.OnError(item.path, true, failure);
            return;
        }
        VisitContent(item, folder, std::move(names));
    }

    ITreeVisitor& visitor_;
    ITreeFilter* const filter_;
};

void VisitSingleFile(const std::string& root, ITreeVisitor& visitor) {
    const auto nameBegin = root.find_last_of('/') + 1;
    const std::string folder = nameBegin == 0 ? "." : root.substr(0, nameBegin);
    const posix::fd_t holder = OpenFolder(AT_FDCWD, folder, 0, folder);
    visitor.OnItem(StatItem(holder.Get(), root.substr(nameBegin), ""));
}

}  // namespace

void WalkTree(const std::string& root, ITreeVisitor& visitor, ITreeFilter* filter) {
    posix::fd_t folder;
    try {
        folder = OpenFolder(AT_FDCWD, root, 0, root);
    } catch (const posix::CPosixExc& failure) {
        if (failure.GetErrorNumber() != ENOTDIR) {
            throw;
        }
        VisitSingleFile(root, visitor);
        return;
    }
    CWalk walk(visitor, filter);
    const SSourceItem item = StatItem(folder.Get(), ".", "");
    auto known = walk.NamesOf(item);
    auto names = known ? *std::move(known) : ReadNames(folder, root);
    visitor.OnItem(item);
    walk.VisitContent(item, folder, std::move(names));
}

}  // namespace agent
