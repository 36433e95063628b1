#pragma once

#include <cstdint>
#include <string>

#include "common/guid.h"
#include "common/posix.h"

namespace agent {

/// What the agent keeps on this machine: the client's id, and per set a copy of the metadata that is in the cloud,
/// with the number of the last checkpoint made. Losing it costs a download, never data. Failures are exceptions that
/// name the file. For one thread.
class CLocalState {
public:
    /// The folder is made when it is missing.
    explicit CLocalState(std::string folder);

    /// Where it lies unless the user says otherwise: $XDG_STATE_HOME/cloudbackup, else ~/.local/state/cloudbackup.
    [[nodiscard]] static std::string DefaultFolder();

    /// This machine's client id; made at the first call ever.
    [[nodiscard]] guid::guid_t GetClientId();
    /// The folder of one set, made when it is missing.
    [[nodiscard]] std::string GetSetFolder(const guid::guid_t& repository, const guid::guid_t& client,
                                           const std::string& set) const;
    /// Where it is noted how a client of a repository encrypts. No set has such a name.
    [[nodiscard]] std::string GetKeyMemoryPath(const guid::guid_t& repository, const guid::guid_t& client) const;
    /// Drops all that is known of a client that is no more.
    void ForgetClient(const guid::guid_t& repository, const guid::guid_t& client) const;

private:
    std::string folder_;
};

/// Holds a set against a second run on this machine, as long as it lives; the system lets go of it when the process
/// ends, however it ends.
class CSetLock {
public:
    /// Throws exc::CRuntimeExc when another run holds it.
    CSetLock(const std::string& setFolder, const std::string& set);

private:
    posix::posix_file_t file_;
};

/// A folder for one run's temporary files; removed with all files in it at the end. What killed runs left in the parent
/// is removed at the beginning.
class CScratchFolder {
public:
    explicit CScratchFolder(const std::string& parent);
    CScratchFolder(const CScratchFolder&) = delete;
    CScratchFolder& operator=(const CScratchFolder&) = delete;
    ~CScratchFolder();

    [[nodiscard]] const std::string& GetPath() const { return path_; }

private:
    std::string path_;
    posix::fd_t lock_;  // tells others that the folder is in use
};

/// A file of a line or so, which is written whole or not at all. Failures are posix::CPosixExc.
[[nodiscard]] std::string ReadSmallFile(const std::string& path);
void WriteSmallFile(const std::string& path, const std::string& text);

/// The number of the last checkpoint of a set that this machine made; 0 when it remembers none.
[[nodiscard]] std::uint64_t ReadLastCheckpoint(const std::string& setFolder);
/// 0 forgets it.
void WriteLastCheckpoint(const std::string& setFolder, std::uint64_t checkpoint);

/// Makes a folder with its missing parents, for the user alone.
void MakePrivateFolders(const std::string& folder);

}  // namespace agent
