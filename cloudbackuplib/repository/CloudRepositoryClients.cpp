// What a repository keeps of each backup client: who it is, the key it encrypts with, the keys it used before.

#include "cloudbackuplib/CloudExternalRepository.h"
#include "cloudbackuplib/cloud/CloudDocument.h"
#include "common/exc.h"
#include "common/logging.h"

namespace cloudbackuplib::backup {

namespace {

constexpr const char* configFolder = "Config";
constexpr const char* clientInfoPath = "Config/ClientInfo.xml";
constexpr const char* keyInfoPath = "Config/ClientKeyInfo.xml";
constexpr const char* keyHistoryPath = "Config/ClientKeyHistory.xml";
constexpr const char* clientInfoNode = "ClientInfo";
constexpr const char* keyHistoryNode = "ClientKeyHistory";

}  // namespace

SCloudRepoIdentity CCloudExternalRepository::LoadClientInfo(const guid::guid_t& clientId) const {
    const auto found = document::Read(*GetBackupClient(clientId), clientInfoPath);
    if (!found) {
        return {clientId, "", ""};
    }
    const auto client = checkpoint::COwnerDescriptor::Deserialize(xml::TiXmlGetChildExc(*found, clientInfoNode));
    if (!(client.GetId() == clientId)) {
        throw exc::CRuntimeExc("Client information has invalid client id: '%1'", client.GetId());
    }
    return {client.GetId(), client.GetType(), client.GetDescription()};
}

void CCloudExternalRepository::UpdateClientInfo() {
    logging::trace_t trace(logging::Library(), "Updating client information for external cloud repository");
    const SCloudRepositoryClientInfo& client = info_.client.Get();
    const checkpoint::COwnerDescriptor descriptor(client.clientId, client.clientType, client.clientName);
    document::WriteInFolder(*GetBackupClient(client.clientId), configFolder, clientInfoPath,
                            document::Make(clientInfoNode, descriptor));
    trace.Ok();
}

void CCloudExternalRepository::EnsureClientInfo(const guid::guid_t& clientId) {
    const bool isOwn = info_.client.IsSet() && info_.client.Get().clientId == clientId;
    if (isOwn && !GetBackupClient(clientId)->IsFileExist(clientInfoPath)) {
        UpdateClientInfo();
    }
}

std::shared_ptr<CCloudClientKeyInfo> CCloudExternalRepository::LoadClientKeyInfo(const guid::guid_t& clientId) const {
    const auto found = document::Read(*GetBackupClient(clientId), keyInfoPath);
    return found ? CCloudClientKeyInfo::Deserialize(*found) : CCloudClientKeyInfo::CreateEmpty();
}

void CCloudExternalRepository::UpdateClientKeyInfo(const guid::guid_t& clientId, const CCloudClientKeyInfo& keyInfo) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    keyInfo.Serialize(document);
    document::WriteInFolder(*GetBackupClient(clientId), configFolder, keyInfoPath, document);
}

std::shared_ptr<CCloudClientKeyHistory> CCloudExternalRepository::LoadClientKeyHistory(
    const guid::guid_t& clientId) const {
    const auto found = document::Read(*GetBackupClient(clientId), keyHistoryPath);
    return found ? CCloudClientKeyHistory::Deserialize(xml::TiXmlGetChildExc(*found, keyHistoryNode))
                 : CCloudClientKeyHistory::CreateEmpty();
}

void CCloudExternalRepository::UpdateClientKeyHistory(const guid::guid_t& clientId,
                                                      const CCloudClientKeyHistory& history) {
    document::WriteInFolder(*GetBackupClient(clientId), configFolder, keyHistoryPath,
                            document::Make(keyHistoryNode, history));
}

void CCloudExternalRepository::SetEncryptionKey(const guid::guid_t& clientId, std::shared_ptr<crypto::CKeySet> keySet,
                                                std::shared_ptr<crypto::sec_bytes_t> salt) {
    const guid::guid_t id = GetEffectiveClientId(clientId);
    logging::trace_t trace(logging::Library(), "Setting encryption key '%1' for client '%2'", keySet->ToLogStr(), id);
    EnsureClientInfo(id);
    CCloudClientKeyInfo keyInfo;
    keyInfo.SetEncryptionKey({std::make_shared<crypto::CKeySetId>(keySet->GetId()), keySet->GetHint(), salt});
    UpdateClientKeyInfo(id, keyInfo);
    trace.Ok();
}

COptionalParameter<SCloudRepoEncryptionKeyInfo> CCloudExternalRepository::GetEncryptionKeyInfo(
    const guid::guid_t& clientId) {
    const guid::guid_t id = GetEffectiveClientId(clientId);
    logging::trace_t trace(logging::Library(), "Getting encryption key info for client '%1'", id);
    auto keyInfo = LoadClientKeyInfo(id)->GetKeyInfo();
    trace.Ok();
    return keyInfo;
}

void CCloudExternalRepository::AddHistoricalKey(const guid::guid_t& clientId, std::shared_ptr<crypto::CKeySet> keySet) {
    const guid::guid_t id = GetEffectiveClientId(clientId);
    logging::trace_t trace(logging::Library(), "Adding historical key '%1' for client '%2'", keySet->ToLogStr(), id);
    const auto history = LoadClientKeyHistory(id);
    history->PushKey(keySet);
    UpdateClientKeyHistory(id, *history);
    trace.Ok();
}

std::vector<std::shared_ptr<crypto::CKeySet>> CCloudExternalRepository::EnumHistoricalKeys(
    const guid::guid_t& clientId) {
    const guid::guid_t id = GetEffectiveClientId(clientId);
    logging::trace_t trace(logging::Library(), "Enumerating historical keys for client '%1'", id);
    auto keys = LoadClientKeyHistory(id)->GetKeys();
    for (const auto& key : keys) {
        logging::Library().Tr("    %1", key->ToLogStr());
    }
    trace.Ok();
    return keys;
}

}  // namespace cloudbackuplib::backup
