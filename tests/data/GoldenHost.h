#pragma once

#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "clients/directory/DirectoryClient.h"
#include "cloudbackuplib/CloudExternalRepository.h"
#include "tests/library/StorageWriter.h"
#include "tests/support/TempDir.h"

namespace golden {

inline const auto repositoryId = guid::guid_t::FromStr("4e000000-0000-4000-8000-000000000001");
inline const auto clientA = guid::guid_t::FromStr("c1000000-0000-4000-8000-00000000000a");
inline const auto clientB = guid::guid_t::FromStr("c1000000-0000-4000-8000-00000000000b");
inline const auto firstStorage = guid::guid_t::FromStr("5a000000-0000-4000-8000-000000000001");
inline const auto secondStorage = guid::guid_t::FromStr("5a000000-0000-4000-8000-000000000002");

/// A storage whose metadata says in words what it is: which header, which bank, as of which version.
class StorageScript {
public:
    StorageScript(std::string name, const guid::guid_t& id, const std::string& localFolder)
        : name_(std::move(name)), writer_(id, localFolder + "/" + id.ToAStr()) {}

    /// Gives the metadata that many banks; those of the given numbers (from 1 on) are written anew.
    void Write(std::size_t banks, const std::set<std::size_t>& changed);
    /// Reports what was written to the session.
    void Report(cloudbackuplib::backup::CCloudBackupSession& session);
    void Detach() { writer_.Detach(); }
    [[nodiscard]] const guid::guid_t& GetId() const { return writer_.GetId(); }

private:
    std::string name_;
    test::StorageWriter writer_;
    std::set<std::size_t> changed_;
};

/// One machine that writes to the repository "golden" in a folder.
class GoldenHost {
public:
    using backup_ptr = std::shared_ptr<cloudbackuplib::backup::CCloudBackup>;

    /// The repository is made when it is not there, with a fixed id.
    GoldenHost(const std::string& folder, const cloudbackuplib::backup::SCloudRepositoryClientInfo& client);

    [[nodiscard]] cloudbackuplib::backup::CCloudExternalRepository& GetRepository() { return *repository_; }
    [[nodiscard]] backup_ptr CreateBackup(const std::string& name) { return repository_->CreateBackup({}, name); }
    [[nodiscard]] StorageScript NewStorage(const std::string& name, const guid::guid_t& id) const {
        return {name, id, local_.GetPath()};
    }
    /// A checkpoint with these storages changed; those in `blobs` change to that schema.
    static void Commit(const backup_ptr& backup, const std::vector<StorageScript*>& changed, const std::string& content,
                       const std::string& longTerm = {}, const std::set<guid::guid_t>& blobs = {});
    /// Stores a block as it is; its name is its digest.
    static void PutBlock(const backup_ptr& backup, const guid::guid_t& storageId, std::string_view bytes);

private:
    test::TempDir local_;
    std::shared_ptr<clients::CDirectoryClient> client_;
    std::shared_ptr<cloudbackuplib::backup::CCloudExternalRepository> repository_;
};

}  // namespace golden
