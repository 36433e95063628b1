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

#include "agent/run/SetDocument.h"
#include "common/exc.h"
#include "common/util.h"

namespace agent {

namespace {

std::string HomeFolder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/') {  // NOLINT: no thread changes it
        return home;
    }
    if (const passwd* user = ::getpwuid(::getuid()); user != nullptr) {  // NOLINT: read once, before threads
        return user->pw_dir;
    }
    throw exc::CRuntimeExc("Cannot tell the home folder: set HOME, or name the state folder with --state-dir");
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

CSetLock::CSetLock(const std::string& setFolder, const std::string& set)
    : file_(posix::posix_file_t::OpenOrCreate4Write(setFolder + "/lock", false, 0)) {
    if (::flock(file_.GetFd(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            throw exc::CRuntimeExc("Another run of set '%1' is under way on this machine", set);
        }
        throw posix::CPosixExc("lock", file_.GetPath(), errno);
    }
}

CScratchFolder::CScratchFolder(const std::string& parent) : path_(parent + "/run-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) {
        throw posix::CPosixExc("make a folder in", parent, errno);
    }
}

CScratchFolder::~CScratchFolder() {
    std::error_code ignored;  // what stays behind is swept by the next run
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace agent
