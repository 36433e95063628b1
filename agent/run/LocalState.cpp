#include "agent/run/LocalState.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "agent/run/SetDocument.h"
#include "common/exc.h"
#include "common/util.h"

namespace agent {

namespace {

constexpr const char* lastCheckpointFile = "/last-checkpoint";

std::string HomeFolder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/') {  // NOLINT: no thread changes it
        return home;
    }
    if (const passwd* user = ::getpwuid(::getuid()); user != nullptr) {  // NOLINT: read once, before threads
        return user->pw_dir;
    }
    throw exc::CRuntimeExc("Cannot tell the home folder: set HOME, or name the state folder with --state-dir");
}

constexpr const char* scratchPrefix = "run-";

/// Open and locked; nothing where that cannot be had.
posix::fd_t LockFolder(const std::string& path, int operation) {
    posix::fd_t folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    return folder && ::flock(folder.Get(), operation) == 0 ? std::move(folder) : posix::fd_t();
}

/// Removes what runs that were killed have left: the system has let go of their locks.
void SweepScratch(const std::string& parent) {
    std::error_code ignored;  // of others that sweep as well
    for (const auto& entry : std::filesystem::directory_iterator(parent, ignored)) {
        if (entry.path().filename().string().starts_with(scratchPrefix)) {
            if (const auto lock = LockFolder(entry.path(), LOCK_EX | LOCK_NB)) {
                std::filesystem::remove_all(entry.path(), ignored);
            }
        }
    }
}

}  // namespace

std::string ReadSmallFile(const std::string& path) {
    auto file = posix::posix_file_t::Open4Read(path);
    std::array<char, 256> buffer{};
    return {buffer.data(), file.Read(buffer.data(), buffer.size())};
}

void WriteSmallFile(const std::string& path, const std::string& text) {
    const std::string beside = path + ".new";
    auto file = posix::posix_file_t::OpenOrCreate4Write(beside, false, 0);
    file.Truncate(0);
    file.Write(text);
    file.Sync();
    util::fs_file_rename(beside, path);
}

std::uint64_t ReadLastCheckpoint(const std::string& setFolder) {
    const std::string path = setFolder + lastCheckpointFile;
    return ::access(path.c_str(), F_OK) == 0 ? util::str_to_uint64(ReadSmallFile(path)) : 0;
}

void WriteLastCheckpoint(const std::string& setFolder, std::uint64_t checkpoint) {
    const std::string path = setFolder + lastCheckpointFile;
    checkpoint == 0 ? util::fs_file_delete(path) : WriteSmallFile(path, std::to_string(checkpoint));
}

void MakePrivateFolders(const std::string& folder) {
    for (std::size_t at = folder.find('/', 1); at != std::string::npos; at = folder.find('/', at + 1)) {
        ::mkdir(folder.substr(0, at).c_str(), 0700);  // what fails here shows below
    }
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) {
        throw posix::CPosixExc("make the folder", folder, errno);
    }
}

CLocalState::CLocalState(std::string folder) : folder_(std::move(folder)) { MakePrivateFolders(folder_); }

std::string CLocalState::DefaultFolder() {
    const char* state = std::getenv("XDG_STATE_HOME");  // NOLINT: no thread changes it
    const std::string base = state != nullptr && *state == '/' ? state : HomeFolder() + "/.local/state";
    return base + "/cloudbackup";
}

guid::guid_t CLocalState::GetClientId() {
    const std::string path = folder_ + "/client-id";
    if (::access(path.c_str(), F_OK) != 0) {
        // Written beside and linked into place: two first runs at once agree on one id.
        const guid::guid_t created = guid::guid_t::CreateNew();
        const std::string beside = path + "." + created.ToAStr();
        auto file = posix::posix_file_t::OpenOrCreate4Write(beside, true, 0);
        file.Write(created.ToAStr() + "\n");
        file.Sync();
        const int result = ::link(beside.c_str(), path.c_str());
        const int error = errno;
        util::fs_file_delete(beside);
        if (result != 0 && error != EEXIST) {
            throw posix::CPosixExc("make", path, error);
        }
    }
    std::string text = ReadSmallFile(path);
    while (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    try {
        return guid::guid_t::FromStr(text);
    } catch (const std::exception& failure) {
        exc::RegenTraceExc(failure, "The client id in '%1' cannot be read", path);
    }
}

std::string CLocalState::GetSetFolder(const guid::guid_t& repository, const guid::guid_t& client,
                                      const std::string& set) const {
    std::string folder = folder_ + "/" + repository.ToAStr() + "/" + client.ToAStr() + "/" + set;
    MakePrivateFolders(folder);
    return folder;
}

std::string CLocalState::GetKeyMemoryPath(const guid::guid_t& repository, const guid::guid_t& client) const {
    const std::string folder = folder_ + "/" + repository.ToAStr() + "/" + client.ToAStr();
    MakePrivateFolders(folder);
    return folder + "/.key";
}

void CLocalState::ForgetClient(const guid::guid_t& repository, const guid::guid_t& client) const {
    std::filesystem::remove_all(folder_ + "/" + repository.ToAStr() + "/" + client.ToAStr());
}

CSetLock::CSetLock(const std::string& setFolder, const std::string& set)
    : file_(posix::posix_file_t::OpenOrCreate4Write(setFolder + "/lock", false, 0)) {
    if (::flock(file_.GetFd(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            throw exc::CRuntimeExc("Another run of set '%1' is under way on this machine", set);
        }
        throw posix::CPosixExc("lock", file_.GetPath(), errno);
    }
}

CScratchFolder::CScratchFolder(const std::string& parent) {
    SweepScratch(parent);
    do {
        path_ = parent + "/" + scratchPrefix + "XXXXXX";
        if (::mkdtemp(path_.data()) == nullptr) {
            throw posix::CPosixExc("make a folder in", parent, errno);
        }
        lock_ = LockFolder(path_, LOCK_EX);
    } while (::access(path_.c_str(), F_OK) != 0);  // swept before it was locked
}

CScratchFolder::~CScratchFolder() {
    std::error_code ignored;  // what stays behind is swept by the next run
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace agent
