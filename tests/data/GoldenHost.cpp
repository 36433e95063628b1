#include "tests/data/GoldenHost.h"

#include "cloudbackuplib/CloudBackupSession.h"
#include "cloudbackuplib/CloudPaths.h"
#include "common/xml.h"

namespace golden {

namespace backup = cloudbackuplib::backup;

namespace {

constexpr const char* folderName = "golden";

/// The library would give the repository a new id.
void MakeRepository(cloudclientlib::ICloudClient& client) {
    const std::string path = std::string("/Draxo/Backup/") + folderName + "/Config/Repository";
    if (client.IsFileExist(path)) {
        return;
    }
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t root = xml::TiXmlCreateChild(document, "Repository");
    backup::SCloudRepositoryDescription{repositoryId, folderName}.Serialize(root);
    const std::string text = xml::TiXmlToStr(document);
    client.UploadFileAsync(path, std::make_shared<cnt::array_t<char>>(text.begin(), text.end()))->Wait();
}

std::string Text(const std::string& what, const std::string& storage, unsigned long version) {
    return what + " of " + storage + ", written with version " + std::to_string(version) + "\n";
}

}  // namespace

void StorageScript::Write(std::size_t banks, const std::set<std::size_t>& changed) {
    const unsigned long version = writer_.version + 1;  // as the report will count it
    writer_.header = Text("header", name_, version);
    writer_.banks.resize(banks);
    changed_.clear();
    for (const std::size_t number : changed) {
        writer_.banks.at(number - 1) = Text("bank " + std::to_string(number), name_, version);
        changed_.insert(number - 1);
    }
}

void StorageScript::Report(backup::CCloudBackupSession& session) {
    writer_.Attach(session);
    writer_.Flush(changed_);
}

GoldenHost::GoldenHost(const std::string& folder, const backup::SCloudRepositoryClientInfo& client)
    : client_(std::make_shared<clients::CDirectoryClient>(folder, clients::ERoot::createMissing)) {
    MakeRepository(*client_);
    repository_ = std::dynamic_pointer_cast<backup::CCloudExternalRepository>(
        backup::CCloudExternalRepository::OpenExisting(client_, {folderName, client}));
}

void GoldenHost::Commit(const backup_ptr& backup, const std::vector<StorageScript*>& changed,
                        const std::string& content, const std::string& longTerm, const std::set<guid::guid_t>& blobs) {
    const auto session = backup::CCloudBackupSession::StartSession(backup, backup->GetLastCheckpointId(), false);
    for (StorageScript* storage : changed) {
        storage->Report(*session);
        if (blobs.contains(storage->GetId())) {
            session->StorageUseLongTermBlobs(storage->GetId());
        }
    }
    session->CreateCheckpoint(content, longTerm);
    for (StorageScript* storage : changed) {
        storage->Detach();
    }
}

void GoldenHost::PutBlock(const backup_ptr& backup, const guid::guid_t& storageId, std::string_view bytes) {
    const std::string name = backup::paths::DigestToBlockName(digest::Md5(bytes));
    backup->GetBackupClient()
        ->UploadFileAsync(backup::paths::GetBackupBlockPath(backup->GetBackupId(), storageId, name),
                          std::make_shared<cnt::array_t<char>>(bytes.begin(), bytes.end()))
        ->Wait();
}

}  // namespace golden
