#include "tests/compatibility/GoldenFixture.h"

#include <filesystem>
#include <fstream>

namespace test {

namespace fs = std::filesystem;

namespace {

const fs::path dataFolder = fs::path(CLOUDBACKUP_SOURCE_DIR) / "tests/data";

/// Folders without files do not come along: a checkout would not have them.
void CopyFiles(const fs::path& from, const fs::path& to) {
    for (const auto& entry : fs::recursive_directory_iterator(from)) {
        if (entry.is_regular_file()) {
            const fs::path target = to / entry.path().lexically_relative(from);
            fs::create_directories(target.parent_path());
            fs::copy_file(entry.path(), target, fs::copy_options::overwrite_existing);
        }
    }
}

void Damage(const fs::path& folder, const fs::path& damage) {
    CopyFiles(damage, folder);
    std::ifstream removed(damage / "removed");
    for (std::string path; std::getline(removed, path);) {
        if (!fs::remove(folder / path)) {
            throw std::runtime_error("there is no file to be removed: " + path);
        }
    }
    fs::remove(folder / "removed");
}

}  // namespace

std::string Line(const std::string& what, const std::string& storage, unsigned long version) {
    return what + " of " + storage + ", written with version " + std::to_string(version) + "\n";
}

std::string ReadBytes(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::map<std::string, std::string> FilesUnder(const std::string& folder) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            files[entry.path().lexically_relative(folder)] = ReadBytes(entry.path());
        }
    }
    return files;
}

void GoldenTest::Copy(const std::string& golden, const std::string& damage) {
    CopyFiles(dataFolder / "golden" / golden, folder_.GetPath());
    if (!damage.empty()) {
        Damage(folder_.GetPath(), dataFolder / "damaged" / damage);
    }
}

GoldenTest::repository_ptr GoldenTest::Open(const std::optional<backup::SCloudRepositoryClientInfo>& client) {
    backup::SCloudRepositoryInfo info{"golden", {}};
    if (client) {
        info.client.Set(*client);
    }
    return std::dynamic_pointer_cast<backup::CCloudExternalRepository>(backup::CCloudExternalRepository::OpenExisting(
        std::make_shared<clients::CDirectoryClient>(folder_.GetPath()), info));
}

GoldenTest::backup_ptr GoldenTest::OpenBackup(const std::string& name, bool readOnly) {
    return Open()->LoadBackup({}, name, readOnly);
}

std::string GoldenTest::Restore(const backup_ptr& backup, unsigned long checkpointId, const guid::guid_t& storageId) {
    const std::string path = local_ / ("restored" + std::to_string(++restored_));
    const auto session = backup::CCloudBackupSession::StartSession(backup, checkpointId, true);
    session->PrepareStorageForAccess(storageId, path, 0);
    return ReadBytes(path);
}

std::string GoldenTest::RestoreFailure(const backup_ptr& backup, unsigned long checkpointId,
                                       const guid::guid_t& storageId) {
    std::string failure = FailureOf([&] { (void)Restore(backup, checkpointId, storageId); });
    const std::string path = local_ / ("restored" + std::to_string(restored_));
    for (auto at = failure.find(path); at != std::string::npos; at = failure.find(path)) {
        failure.replace(at, path.size(), "LOCAL");
    }
    return failure;
}

}  // namespace test
