#include "agent/keys/KeyRing.h"

#include <algorithm>

#include "common/exc.h"

namespace agent {

namespace {

std::string WrapContext(const crypto::SRawKeySetId& former, const crypto::SRawKeySetId& master) {
    return former.ToAStr() + master.ToAStr();
}

data_key_ptr Find(const std::vector<data_key_ptr>& keys, const crypto::SRawKeySetId& id) {
    const auto found = std::ranges::find_if(keys, [&](const auto& key) { return key->GetId() == id; });
    return found == keys.end() ? nullptr : *found;
}

data_key_ptr Unwrap(const crypto::CKeySet& keySet, const crypto::CRestoreKeyRepairRec& record, const CDataKey& master) {
    crypto::sec_bytes_t material(record.wrappedKey.size() < sealOverhead ? 0 : record.wrappedKey.size() - sealOverhead);
    CSealer().Open(master.WrapKey(), WrapContext(keySet.GetId().GetRaw(), master.GetId()), record.wrappedKey, material);
    auto key = std::make_shared<const CDataKey>(std::move(material));
    if (key->GetId() != keySet.GetId().GetRaw()) {
        throw exc::CRuntimeExc("it holds another key");
    }
    return key;
}

/// Null when none of the keys opens it.
data_key_ptr Recover(const crypto::CKeySet& keySet, const std::vector<data_key_ptr>& keys) {
    for (const auto& record : keySet.GetRepairRecords()) {
        const data_key_ptr master = Find(keys, record.masterKeyId);
        if (!master) {
            continue;
        }
        try {
            return Unwrap(keySet, record, *master);
        } catch (const exc::CExc&) {  // another record may do
        }
    }
    return nullptr;
}

}  // namespace

CKeyRing::CKeyRing(data_key_ptr current, const std::vector<key_set_ptr>& history)
    : current_(std::move(current)), keys_{current_} {
    for (const auto& keySet : history) {
        const auto& id = keySet->GetId().GetRaw();
        if (Find(keys_, id)) {
            continue;  // a change of keys that was not finished
        }
        if (data_key_ptr key = Recover(*keySet, keys_)) {
            keys_.push_back(std::move(key));
        } else {
            lost_.push_back({id, keySet->GetHint()});
        }
    }
}

CKeyRing::CKeyRing(const std::vector<data_key_ptr>& keys)
    : current_(keys.empty() ? nullptr : keys.front()), keys_(keys) {}

data_key_ptr CKeyRing::FindExc(const crypto::SRawKeySetId& id) const {
    if (id == crypto::SRawKeySetId()) {
        return nullptr;
    }
    data_key_ptr key = Find(keys_, id);
    if (!key) {
        throw exc::CRuntimeExc("it is encrypted with key %1, which is not among the keys of this client", id.ToAStr());
    }
    return key;
}

key_set_ptr RetireKey(const CDataKey& former, const std::wstring& hint, const CDataKey& successor) {
    crypto::CRestoreKeyRepairRec record;
    record.masterKeyId = successor.GetId();
    record.wrappedKey.resize(former.GetMaterial().size() + sealOverhead);
    CSealer().Seal(successor.WrapKey(), RandomNonce(), WrapContext(former.GetId(), successor.GetId()),
                   former.GetMaterial(), record.wrappedKey);
    return std::make_shared<crypto::CKeySet>(crypto::CKeySetId(former.GetId()), hint, crypto::sec_bytes_t(),
                                             std::vector{std::move(record)});
}

}  // namespace agent
