#pragma once

#include <set>
#include <string>
#include <vector>

#include "common/digest.h"

namespace cloudbackuplib::backup {

/// The names found in a block store, as a set: for stores of many blocks.
///
/// A name that spells a digest, as all but strangers do, is kept as its 16 bytes. First all names are added, then Sort
/// is called, then digests are removed, then the names are read. For one thread.
class CBlockNames {
public:
    void Add(const std::string& name);
    /// Ends the adding: a name added twice is there once.
    void Sort();
    void Remove(const std::vector<digest::md5_digest_t>& digests);
    [[nodiscard]] std::size_t GetCount() const { return digests_.size() + others_.size(); }
    /// Takes out the smallest name. There must be one.
    [[nodiscard]] std::string TakeFirst();

private:
    /// Sorted in reverse, so that the smallest one can be taken from the end.
    std::vector<digest::md5_digest_t> digests_;
    /// The names that are no digest, or not as a block would be named.
    std::set<std::string> others_;
};

}  // namespace cloudbackuplib::backup
