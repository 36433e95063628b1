#include "cloudbackuplib/CloudClientKeyHistory.h"

#include <algorithm>
#include <utility>

#include "cloudbackuplib/repository/SecretAttribute.h"
#include "common/exc.h"
#include "common/stream.h"
#include "common/util.h"

namespace cloudbackuplib::backup {

namespace {

constexpr const char* historicalKeyNode = "HistoricalKey";

/// Who has `newer` can get at `older`: that one's material is there, or wrapped under the newer one's.
bool Continues(const crypto::CKeySet& newer, const crypto::CKeySet& older) {
    const auto& records = older.GetRepairRecords();
    return older.HasKeys() || std::any_of(records.begin(), records.end(), [&](const auto& record) {
               return record.masterKeyId == newer.GetId().GetRaw();
           });
}

void SerializeKey(xml::xml_holder_t& parent, const crypto::CKeySet& key) {
    xml::xml_holder_t node = xml::TiXmlCreateChild(parent, historicalKeyNode);
    xml::TiXmlSetStrAttr(node, "Hint", util::WideToUtf8(key.GetHint()));
    io::mem_stream_tt<crypto::sec_allocator_t<char>> stream;
    key.Serial(stream);
    SetSecretAttr(node, "Value", stream.GetBuffer());
}

CCloudClientKeyHistory::key_ptr DeserializeKey(const xml::xml_holder_t& node) {
    const crypto::sec_bytes_t bytes = GetSecretAttrExc(node, "Value");
    try {
        return crypto::CKeySet::Unserial(bytes);
    } catch (const std::exception& e) {
        exc::RegenTraceExc(e, "Attribute 'Value' of node '%1' is not a key set", historicalKeyNode);
    }
}

}  // namespace

std::shared_ptr<CCloudClientKeyHistory> CCloudClientKeyHistory::CreateEmpty() {
    return std::make_shared<CCloudClientKeyHistory>();
}

void CCloudClientKeyHistory::PushKey(key_ptr keySet) {
    if (!keys_.empty() && !Continues(*keySet, *keys_.front())) {
        throw exc::CRuntimeExc("Invalid historical key chain (new key: %1, previous key: %2)", keySet->ToLogStr(),
                               keys_.front()->ToLogStr());
    }
    keys_.insert(keys_.begin(), std::move(keySet));
}

void CCloudClientKeyHistory::Serialize(xml::xml_holder_t& element) const {
    for (const auto& key : keys_) {
        SerializeKey(element, *key);
    }
}

std::shared_ptr<CCloudClientKeyHistory> CCloudClientKeyHistory::Deserialize(const xml::xml_holder_t& element) {
    auto history = CreateEmpty();
    for (const auto& child : xml::TiXmlGetChildren(element)) {
        if (xml::TiXmlGetNodeName(child) == historicalKeyNode) {
            history->keys_.push_back(DeserializeKey(child));
        }
    }
    return history;
}

}  // namespace cloudbackuplib::backup
