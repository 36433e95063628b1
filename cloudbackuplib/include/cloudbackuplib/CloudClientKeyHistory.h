#pragma once

#include <memory>
#include <vector>

#include "common/crypto/key_set.h"
#include "common/export.h"
#include "common/xml.h"

namespace cloudbackuplib::backup {

/// The keys that a client used before, newest first: a chain, in which a key without its own material names, in a
/// repair record, the key that it was wrapped under. For one thread.
class CB_EXPORT CCloudClientKeyHistory {
public:
    using key_ptr = std::shared_ptr<crypto::CKeySet>;

    [[nodiscard]] static std::shared_ptr<CCloudClientKeyHistory> CreateEmpty();

    /// Puts a key in front. Throws exc::CRuntimeExc, and changes nothing, when the chain would break.
    void PushKey(key_ptr keySet);
    [[nodiscard]] const std::vector<key_ptr>& GetKeys() const { return keys_; }

    void Serialize(xml::xml_holder_t& element) const;
    [[nodiscard]] static std::shared_ptr<CCloudClientKeyHistory> Deserialize(const xml::xml_holder_t& element);

private:
    std::vector<key_ptr> keys_;
};

}  // namespace cloudbackuplib::backup
