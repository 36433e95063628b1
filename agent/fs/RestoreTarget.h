#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "agent/model/Entry.h"
#include "common/posix.h"

namespace agent {

/// What a target folder may be before the restore.
enum class ETargetUse {
    mustBeEmpty,   ///< it is made when it is missing
    mayHoldFiles,  ///< it is made when it is missing
    onlyLook,      ///< nothing is made or changed; it need not exist
};

/// Whether a name that is taken may be given to another file.
enum class EReplace { no, yes };

/// An open folder of the target.
struct STargetFolder {
    std::string path;
    posix::fd_t fd;
    /// What is made in it gets an access control list from it.
    bool givesAcl = false;
};

/// A file being restored. It has no name until it is finished: a restore that is cut off leaves no file that looks
/// whole.
struct STargetFile {
    std::shared_ptr<const STargetFolder> folder;
    std::string name;
    /// The name that it bears meanwhile, where the file system knows no nameless files; else empty.
    std::string temporaryName;
    posix::posix_file_t file;
};

/// Bytes of a file.
struct SFileRange {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
};

/// The folder that a restore writes into.
///
/// Everything is opened beneath it and without following links, so that no path and no link from a checkpoint, and none
/// that was there before, leads out of it. Folders are made writable first and get their own modes and times at the
/// end. For one thread; Fork gives another thread its own. Failures are exceptions that name the path; CAttributesExc
/// when the thing itself is there.
class CRestoreTarget {
public:
    explicit CRestoreTarget(const std::string& folder, ETargetUse use = ETargetUse::mustBeEmpty);

    [[nodiscard]] CRestoreTarget Fork() const { return *this; }
    [[nodiscard]] const std::string& GetFolder() const { return folder_; }
    /// Where that is, for messages.
    [[nodiscard]] std::string FullPath(const std::string& path) const;

    /// What stands there; nothing where nothing does. With extended attributes when asked for.
    [[nodiscard]] std::optional<SEntry> Find(const std::string& path, bool withXattrs = false);
    /// The text of a symbolic link.
    [[nodiscard]] std::string ReadLink(const std::string& path);
    [[nodiscard]] std::vector<std::string> ListNames(const std::string& path) const;
    /// Whether a folder at or under `base` lies in a mount, or on a file system, that `base` itself does not lie on.
    [[nodiscard]] bool IsMountedUnder(const std::string& base, const std::string& path) const;
    /// A regular file, to be read.
    [[nodiscard]] posix::posix_file_t OpenFile(const std::string& path) const;

    /// Makes a folder and its missing parents; false when it was there. Its owner may write in it then.
    bool MakeFolder(const std::string& path);
    /// Gives the folders that were there, and have not been given attributes, the modes that they had.
    void GiveModesBack();
    [[nodiscard]] STargetFile CreateFile(const std::string& path, std::uint64_t size);
    /// Gives the file its attributes and its name.
    void FinishFile(STargetFile file, const SEntry& entry, EReplace replace = EReplace::no);
    /// A file that is here whole: `content` at its begin, the rest a hole. It bears its name from the beginning, its
    /// time only when it is whole.
    void WriteFile(const std::string& path, std::uint64_t offset, std::span<const char> content, const SEntry& entry);
    /// Copies the content of a file that was restored before.
    void CopyContent(const std::string& from, STargetFile& to);
    /// Copies parts of a file to the same places of another.
    static void CopyRange(const posix::posix_file_t& from, const STargetFile& to, const SFileRange& range);
    void MakeSymlink(const std::string& path, const SEntry& entry);
    void MakeHardLink(const std::string& path, const std::string& existing);
    /// A fifo or a device.
    void MakeNode(const std::string& path, const SEntry& entry);
    /// Gives a folder its attributes; after all that lies in it.
    void FinishFolder(const std::string& path, const SEntry& entry);
    /// Gives what was there before the entry's attributes; false when it had them.
    bool UpdateAttributes(const std::string& path, const SEntry& entry);

    /// Removes what is there; a folder with all in it only when `withContent`. Other file systems are not entered.
    void Remove(const std::string& path, bool withContent);
    /// Waits until all that was written is on the device.
    void Sync() const;

private:
    struct SPlace {
        std::shared_ptr<const STargetFolder> folder;
        std::string name;
    };

    [[nodiscard]] SPlace Locate(const std::string& path);
    [[nodiscard]] posix::fd_t OpenBeneath(const std::string& path, int flags) const;

    std::string folder_;
    std::shared_ptr<const posix::fd_t> root_;
    std::map<std::string, std::uint32_t> formerModes_;  // of folders in which the owner could not write
    std::shared_ptr<const STargetFolder> last_;         // paths that follow one another mostly lie in one folder
};

}  // namespace agent
