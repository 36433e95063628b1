#include "agent/check/CheckRun.h"
#include "clients/memory/MemoryClient.h"
#include "tests/agent/AgentFixture.h"

namespace agent {
namespace {

/// A repository in a store that records the MD5 of every object, as buckets do and folders do not.
class CheckDigests : public AgentTest {
protected:
    CheckDigests() {
        options_.wrapStore = [this](const auto&) { return store_; };
        CreateRepository(options_);
        WriteFile("file", std::string(300'000, 'x') + "of no matter");
        Backup();
    }

    [[nodiscard]] SCheckResult Check(bool digests) const {
        SCheckOptions what;
        what.digests = digests;
        return RunCheck(COpenedRepository::Open4Read(options_), what);
    }

    /// The only block's path in the store.
    [[nodiscard]] std::string BlockPath(const std::string& folder = {}) const {
        for (const auto& entry : store_->QueryFolder(folder)) {
            const std::string path = folder + "/" + entry.name;
            if (!entry.isFolder && path.find("/BlockStore/") != std::string::npos) {
                return path;
            }
            if (const std::string found = entry.isFolder ? BlockPath(path) : std::string(); !found.empty()) {
                return found;
            }
        }
        return {};
    }

    /// Its first byte becomes another, on the store's side.
    void DamageBlock() const {
        const auto bytes = std::make_shared<cnt::array_t<char>>();
        store_->DownloadFileAsync(BlockPath(), bytes)->Wait();
        (*bytes)[0] = static_cast<char>((*bytes)[0] ^ 1);
        store_->UploadFileAsync(BlockPath(), bytes)->Wait();
    }

    const std::shared_ptr<clients::CMemoryClient> store_ = std::make_shared<clients::CMemoryClient>();
};

TEST_F(CheckDigests, ABlockWhoseRecordedDigestIsAnotherIsFoundWithoutReadingIt) {
    EXPECT_EQ(Check(true).counts.digestsCompared, 1U);
    EXPECT_TRUE(Check(true).findings.empty());
    DamageBlock();
    EXPECT_TRUE(Check(false).findings.empty()) << "its size is right";
    const auto checked = Check(true);
    ASSERT_EQ(checked.findings.size(), 1U);
    const SFinding& finding = checked.findings.front();
    EXPECT_EQ(finding.damage, EDamage::blockDigest);
    EXPECT_THAT(BlockPath(), testing::EndsWith(finding.object));
    EXPECT_THAT(finding.reason, testing::StartsWith("the store recorded the MD5 "));
    EXPECT_EQ(finding.checkpoints, std::set<std::uint64_t>{1});
    EXPECT_EQ(finding.files, std::set<std::string>{Source("file")});
    EXPECT_EQ(checked.counts.blocksRead, 0U);
}

}  // namespace
}  // namespace agent
