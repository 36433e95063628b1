#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "clients/directory/BeneathRoot.h"
#include "common/posix.h"
#include "common/progress.h"

namespace clients::directory {

/// The folder beneath the root where unfinished objects are written. No object path may begin with it, and no listing
/// of the root shows it.
inline constexpr const char* tempFolderName = ".cloudbackup-tmp";

/// What a folder's entry is. `foreign` is what this client never made and no object store knows: links, pipes, sockets,
/// devices. It is not shown and not counted, for it has no content that could be read as an object's.
enum class EEntry { object, folder, foreign };

struct SEntry {
    std::string name;
    EEntry kind = EEntry::object;
};

/// An open folder and what it held when it was read.
struct SFolderContent {
    posix::fd_t folder;
    std::vector<SEntry> entries;
};

/// Reads the folder; nothing when there is none. In no order.
[[nodiscard]] std::optional<SFolderContent> ReadFolder(const CBeneathRoot& root, const std::string& relative);

/// Calls `visit` for the folder and every folder beneath it, each before those it contains. What vanishes meanwhile is
/// passed over. One folder is open at a time, however deep the tree is.
void WalkFolders(const CBeneathRoot& root, const std::string& relative,
                 const std::function<void(const std::string& relative, const SFolderContent& content)>& visit);

/// Deletes the folder with everything in it, links as links; of the root itself only the content. What others delete at
/// the same time counts as deleted, and a folder in which something new appears stays. `progress` may be empty.
void DeleteTree(const CBeneathRoot& root, const std::string& relative, progress::progress_base_t* progress);

/// What all objects beneath a folder come to.
struct STreeTotals {
    std::uint64_t objects = 0;
    std::uint64_t bytes = 0;
};
[[nodiscard]] STreeTotals CountTree(const CBeneathRoot& root, const std::string& relative);

}  // namespace clients::directory
