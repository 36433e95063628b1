#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cloudbackuplib/CloudExternalRepository.h"
#include "tests/library/BackupFixture.h"

/// What the tests of repositories share: a store in memory, the repository "Team" in it, and its clients A and B.
namespace test {

inline const std::string repositoryRoot = "/Draxo/Backup/Team";
inline const std::string clientAText = "00000000-0000-0000-0000-00000000000a";
inline const std::string clientBText = "00000000-0000-0000-0000-00000000000b";
inline const std::string infoAText =
    "Name: Team, Cliend id: '" + clientAText + "', Client type: 'host', Client description: 'Anna'";

inline SCloudRepositoryInfo InfoA() { return {"Team", SCloudRepositoryClientInfo{Guid(10), "host", "Anna"}}; }
inline SCloudRepositoryInfo InfoB() { return {"Team", SCloudRepositoryClientInfo{Guid(11), "server", "Ben"}}; }
inline SCloudRepositoryInfo InfoOfNobody() { return {"Team", {}}; }

inline std::string ClientFolder(const std::string& clientText) { return repositoryRoot + "/Clients/" + clientText; }

inline const std::string descriptionPath = repositoryRoot + "/Config/Repository";
inline const std::string ownerPath = repositoryRoot + "/Config/Owner";
// Documents of the first client.
inline const std::string infoPath = ClientFolder(clientAText) + "/Config/ClientInfo.xml";
inline const std::string keyPath = ClientFolder(clientAText) + "/Config/ClientKeyInfo.xml";
inline const std::string historyPath = ClientFolder(clientAText) + "/Config/ClientKeyHistory.xml";

inline crypto::SRawKeySetId RawId(std::uint8_t number) {
    crypto::SRawKeySetId raw;
    raw.bytes[15] = number;
    return raw;
}

class RepositoryTest : public BackupTest {
protected:
    using repository_ptr = std::shared_ptr<CCloudExternalRepository>;

    static repository_ptr AsExternal(const std::shared_ptr<ICloudRepository>& repository) {
        return std::dynamic_pointer_cast<CCloudExternalRepository>(repository);
    }
    repository_ptr Create(const SCloudRepositoryInfo& info = InfoA()) {
        return AsExternal(CCloudExternalRepository::CreateNew(client_, archive_, info));
    }
    repository_ptr Open(const SCloudRepositoryInfo& info = InfoA()) {
        return AsExternal(CCloudExternalRepository::OpenExisting(client_, archive_, info));
    }
    /// A backup with one checkpoint.
    static void MakeBackup(ICloudRepository& repository, const std::string& name) {
        repository.CreateBackup({}, name)->SaveCheckpoint(Checkpoint(1));
    }
    [[nodiscard]] std::string Text(const std::string& path) const { return Get(*client_->Reopen(), path); }
    void Write(const std::string& path, const std::string& text) const { Put(*client_->Reopen(), path, text); }

    /// What is logged from now on.
    [[nodiscard]] std::vector<std::string> NewScopes() const {
        const auto scopes = sink_.GetScopes();
        return {scopes.begin() + static_cast<std::ptrdiff_t>(scopesBefore_), scopes.end()};
    }
    void ClearLog() { scopesBefore_ = sink_.GetScopes().size(); }

    const std::shared_ptr<clients::CMemoryClient> archive_ = std::make_shared<clients::CMemoryClient>(Recording());

private:
    std::size_t scopesBefore_ = 0;
};

}  // namespace test
