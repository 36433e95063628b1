#include "agent/run/BackupSources.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <set>

#include "agent/run/OpenedRepository.h"
#include "common/exc.h"

namespace agent {

namespace {

/// The path without links, "." and "..": one source has one name.
std::string RealPath(const std::string& path) {
    struct SFree {
        void operator()(char* text) const { std::free(text); }  // NOLINT: what realpath allocates is freed so
    };
    const std::unique_ptr<char, SFree> real(::realpath(path.c_str(), nullptr));
    if (!real) {
        throw posix::CPosixExc("back up", path, errno);
    }
    return real.get();
}

std::string ReadablePath(const std::string& path) {
    std::string real = RealPath(path);
    if (::access(real.c_str(), R_OK) != 0) {
        throw posix::CPosixExc("read", path, errno);
    }
    return real;
}

/// The listed path itself may be a link, and is kept as one; what leads to it is real.
std::string RealListedPath(const std::string& path) {
    const auto nameBegin = path.find_last_of('/') + 1;
    const std::string name = path.substr(nameBegin);
    if (name.empty() || name == "." || name == "..") {
        return RealPath(path);
    }
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) {
        throw posix::CPosixExc("back up", path, errno);
    }
    const std::string folder = RealPath(nameBegin == 0 ? "." : path.substr(0, nameBegin));
    return (folder == "/" ? "" : folder) + "/" + name;
}

SSourceRoot MakeListedRoot(const std::vector<std::string>& listed, const trouble_sink_t& onTrouble) {
    auto tree = std::make_shared<CPathTree>();
    bool any = false;
    for (const auto& path : listed) {
        try {
            tree->Add(RealListedPath(path));
            any = true;
        } catch (const posix::CPosixExc& failure) {
            onTrouble({path, failure.what()});
        }
    }
    if (!any) {
        throw exc::CRuntimeExc("None of the listed paths is there: nothing to back up");
    }
    return {"/", std::move(tree)};
}

/// How the user's path stands in a document, whether or not it is still there.
std::string DocumentPath(const std::string& path, const SSetDocument& document) {
    std::error_code ignored;
    std::string normal = std::filesystem::absolute(path, ignored).lexically_normal();
    while (normal.size() > 1 && normal.back() == '/') {
        normal.pop_back();
    }
    if (document.FindRoot(path) != nullptr || document.FindRoot(normal) != nullptr) {
        return document.FindRoot(path) != nullptr ? path : normal;
    }
    const std::string real = std::filesystem::weakly_canonical(normal, ignored);
    return real.empty() ? normal : real;
}

std::string ListRoots(const SSetDocument& document) {
    std::string text;
    for (const auto& root : document.roots) {
        text += (text.empty() ? "" : ", ") + EscapePath(root.path);
    }
    return text.empty() ? "none" : text;
}

std::string UserName() {
    const passwd* user = ::getpwuid(::geteuid());  // NOLINT: of the run's thread alone
    return user != nullptr ? user->pw_name : std::to_string(::geteuid());
}

}  // namespace

std::vector<SSourceRoot> FindSources(const SBackupOptions& options, const trouble_sink_t& onTrouble) {
    std::set<std::string> unique;
    for (const auto& source : options.sources) {
        unique.insert(ReadablePath(source));
    }
    std::vector<SSourceRoot> roots;
    if (!options.listed.empty()) {
        if (unique.contains("/")) {
            throw exc::CRuntimeExc("Listed paths are kept under '/': that cannot be a source as well");
        }
        roots.push_back(MakeListedRoot(options.listed, onTrouble));
    }
    for (const auto& path : unique) {
        roots.push_back({path, nullptr});
    }
    return roots;
}

CSelector MakeSelector(const SBackupOptions& options, const SBackupSinks& sinks, const SSourceRoot& source) {
    const auto tell = [root = source.path, onTrouble = sinks.onTrouble](const std::string& path,
                                                                        const std::exception& failure) {
        onTrouble({FullPathOf(root, path), failure.what()});
    };
    return {options.selection, source.path, source.wanted.get(), tell};
}

SSourceParams MakeSourceParams(const SBackupOptions& options, const SBackupSinks& sinks, const SSourceRoot& source,
                               CSelector& selector, CProgressCounter& progress) {
    SSourceParams params;
    params.root = source.path;
    params.filter = &selector;
    params.signs = options.signs;
    params.force = options.force;
    params.progress = &progress;
    params.onTrouble = sinks.onTrouble;
    params.onChange = sinks.onChange;
    params.afterRead = options.afterRead;
    return params;
}

void DropRoots(SSetDocument& document, const std::vector<std::string>& dropped) {
    for (const auto& path : dropped) {
        const std::string known = DocumentPath(path, document);
        const auto found = std::find_if(document.roots.begin(), document.roots.end(),
                                        [&](const SRoot& root) { return root.path == known; });
        if (found == document.roots.end()) {
            throw exc::CRuntimeExc("The last checkpoint has no root '%1' to drop; its roots: %2", EscapePath(path),
                                   ListRoots(document));
        }
        document.roots.erase(found);
    }
}

void Describe(SSetDocument& document, const SBackupOptions& options) {
    document.host = options.host.empty() ? HostName() : options.host;
    document.user = options.user.empty() ? UserName() : options.user;
    document.programVersion = options.programVersion;
    document.tags = options.tags;
    document.description = options.description;
}

void ExpectTotals(CProgressCounter& progress, const SSetDocument& last, const std::vector<SSourceRoot>& roots) {
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
    for (const auto& root : roots) {
        const SRoot* known = last.FindRoot(root.path);
        if (known == nullptr) {
            return;
        }
        files += known->statistics.files;
        bytes += known->statistics.bytes;
    }
    progress.SetTotals(files, bytes);
}

}  // namespace agent
