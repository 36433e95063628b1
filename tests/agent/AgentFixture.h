#pragma once

#include <gmock/gmock.h>

#include <fstream>
#include <string>
#include <vector>

#include "agent/run/BackupRun.h"
#include "agent/run/RestoreRun.h"
#include "tests/agent/Tree.h"
#include "tests/support/TempDir.h"

namespace agent {

/// A source, a repository of the directory client and a state folder, all fresh.
class AgentTest : public testing::Test {
protected:
    AgentTest() {
        options_.location = "dir:" + (dir_ / "repository");
        options_.stateFolder = dir_ / "state";
        options_.keys.password = [](EPasswordUse) { return crypto::sec_bytes_t(8, 'p'); };
        options_.keys.cost = {8U << 10U, 1};  // a key in no time
        MakeFolder("");
        CreateRepository(options_);
    }

    [[nodiscard]] std::string Source(const std::string& path = {}) const {
        return dir_ / (path.empty() ? "source" : "source/" + path);
    }
    void MakeFolder(const std::string& path) const { ASSERT_EQ(::mkdir(Source(path).c_str(), 0755), 0) << path; }
    void WriteFile(const std::string& path, const std::string& content) const {
        std::ofstream file(Source(path), std::ios::binary);
        file << content;
        ASSERT_TRUE(file.flush()) << path;
    }

    SBackupResult Backup() { return Backup({Source()}); }
    SBackupResult Backup(const std::vector<std::string>& sources) {
        troubles_.clear();
        return RunBackup(options_, sources, Collect());
    }

    /// Restores a checkpoint into a new folder; where the given root came to.
    std::string Restore(const std::string& which, const std::string& root) {
        troubles_.clear();
        const std::string target = dir_ / ("restored-" + std::to_string(++restores_));
        restored_ = RunRestore(options_, which, target, Collect());
        return target + root;
    }
    std::string Restore(std::uint64_t checkpoint) { return Restore(std::to_string(checkpoint), Source()); }

    [[nodiscard]] std::vector<std::string> Troubles() const {
        std::vector<std::string> texts;
        for (const auto& trouble : troubles_) {
            texts.push_back(trouble.path + ": " + trouble.reason);
        }
        return texts;
    }

    [[nodiscard]] std::vector<std::string> Objects(const std::string& part) const {
        return FilesUnder(dir_ / "repository", part);
    }

    static SRootStatistics Statistics(const SBackupResult& result) { return result.document.roots.front().statistics; }

    test::TempDir dir_;
    SRepositoryOptions options_;
    SRestoreResult restored_;

private:
    trouble_sink_t Collect() {
        return [this](const STrouble& trouble) { troubles_.push_back(trouble); };
    }

    std::vector<STrouble> troubles_;
    int restores_ = 0;
};

}  // namespace agent
