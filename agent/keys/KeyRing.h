#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/keys/DataKey.h"

namespace agent {

using key_set_ptr = std::shared_ptr<crypto::CKeySet>;

/// A key set of the history that could not be opened with any key there is.
struct SLostKey {
    crypto::SRawKeySetId id;
    std::wstring hint;
};

/// The keys of one client: the one that new data is sealed with, and those before it, by which older data is read.
/// Immutable, safe from any thread. A client without encryption has a ring without keys.
class CKeyRing {
public:
    /// Without keys.
    CKeyRing() = default;
    /// The current key, and what it opens of the history, newest first: each former key was wrapped under its
    /// successor. What cannot be opened is noted.
    CKeyRing(data_key_ptr current, const std::vector<key_set_ptr>& history);
    /// Of keys that are known already; the first is the current one.
    explicit CKeyRing(const std::vector<data_key_ptr>& keys);

    [[nodiscard]] bool IsEmpty() const { return current_ == nullptr; }
    /// Null without encryption.
    [[nodiscard]] const data_key_ptr& GetCurrent() const { return current_; }
    /// Throws exc::CRuntimeExc that names the key when it is not on the ring. Null for the id of no key.
    [[nodiscard]] data_key_ptr FindExc(const crypto::SRawKeySetId& id) const;
    /// The current one first, then the former ones, newest first.
    [[nodiscard]] const std::vector<data_key_ptr>& GetKeys() const { return keys_; }
    [[nodiscard]] const std::vector<SLostKey>& GetLost() const { return lost_; }

private:
    data_key_ptr current_;
    std::vector<data_key_ptr> keys_;
    std::vector<SLostKey> lost_;
};

using key_ring_ptr = std::shared_ptr<const CKeyRing>;

/// What the history keeps of a key that another one succeeds: no material, but a repair record by which who has the
/// successor gets it back.
[[nodiscard]] key_set_ptr RetireKey(const CDataKey& former, const std::wstring& hint, const CDataKey& successor);

}  // namespace agent
