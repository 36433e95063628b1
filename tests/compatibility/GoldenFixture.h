#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "clients/directory/DirectoryClient.h"
#include "cloudbackuplib/CloudBackupSession.h"
#include "cloudbackuplib/CloudExternalRepository.h"
#include "common/options.h"
#include "tests/support/TempDir.h"

/// What the tests of golden repositories share. None of them writes into tests/data: they work on copies.
namespace test {

namespace backup = cloudbackuplib::backup;

inline const guid::guid_t annaId = guid::guid_t::FromStr("c1000000-0000-4000-8000-00000000000a");
inline const guid::guid_t benId = guid::guid_t::FromStr("c1000000-0000-4000-8000-00000000000b");
inline const guid::guid_t firstId = guid::guid_t::FromStr("5a000000-0000-4000-8000-000000000001");
inline const guid::guid_t secondId = guid::guid_t::FromStr("5a000000-0000-4000-8000-000000000002");
inline const backup::SCloudRepositoryClientInfo anna{annaId, "host", "Anna's machine"};
inline const backup::SCloudRepositoryClientInfo ben{benId, "server", "Ben & sons <Übersee>"};

/// What a storage's metadata says in the golden repositories: "header of first, written with version 1".
[[nodiscard]] std::string Line(const std::string& what, const std::string& storage, unsigned long version);

/// The whole chain of the failure; "no failure" when there is none.
template <class F>
std::string FailureOf(const F& operation) {
    try {
        operation();
    } catch (const std::exception& e) {
        return e.what();
    }
    return "no failure";
}

[[nodiscard]] std::string ReadBytes(const std::string& path);
/// Every file under a folder, by its path in there; folders do not count.
[[nodiscard]] std::map<std::string, std::string> FilesUnder(const std::string& folder);

/// A copy of a golden repository, perhaps with a damage: the files of another folder take the place of its own, and
/// those that the file "removed" names are gone.
class GoldenTest : public testing::Test {
protected:
    using repository_ptr = std::shared_ptr<backup::CCloudExternalRepository>;
    using backup_ptr = std::shared_ptr<backup::CCloudBackup>;

    void Copy(const std::string& golden, const std::string& damage = {});
    /// Opens the copy anew, as this client or as nobody.
    repository_ptr Open(const std::optional<backup::SCloudRepositoryClientInfo>& client = anna);
    /// The same with the backup.
    backup_ptr OpenBackup(const std::string& name, bool readOnly = true);
    /// A storage's metadata as a checkpoint has it, through a fresh session into a fresh file.
    std::string Restore(const backup_ptr& backup, unsigned long checkpointId, const guid::guid_t& storageId);
    /// What Restore fails with; the place of the local file, which no two runs share, reads LOCAL.
    std::string RestoreFailure(const backup_ptr& backup, unsigned long checkpointId, const guid::guid_t& storageId);
    void TearDown() override { options_t::GetInst().EnableSingleFileCloudMetadata(false); }

    TempDir folder_;
    TempDir local_;

private:
    unsigned restored_ = 0;
};

}  // namespace test
