#include "agent/run/OpenedCheckpoint.h"
#include "cloudclientlib/wrappers/FaultClient.h"
#include "tests/agent/AgentFixture.h"

namespace agent {
namespace {

using testing::HasSubstr;

/// A target that changes between the plan and the restore.
class RestoreRace : public AgentTest {
protected:
    void Edit(const std::string& path, std::streamoff offset) const {
        std::fstream file(Source(path), std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(offset);
        file << "edited";
        ASSERT_TRUE(file.flush());
    }
};

TEST_F(RestoreRace, VerifySeesAChangeInWhatIsTakenOverFromTheFileThatIsThere) {
    WriteFile("large", RandomBytes(12U << 20U, 1));
    const auto backup = Backup();
    Edit("large", 6 << 20U);
    COpenedCheckpoint opened(options_, "latest");
    const SRoot root = opened.GetDocument().roots.front();
    const CMetaState state = opened.LoadMetadata(root);
    SSourceRestoreOptions options;
    options.overwrite = EOverwrite::ifChanged;
    options.verify = true;
    std::vector<std::string> troubles;
    SRestoreSinks sinks;
    sinks.onTrouble = [&](const STrouble& trouble) { troubles.push_back(trouble.path + ": " + trouble.reason); };
    SProgress progress;
    CSourceRestore restore(state, CRestoreTarget(Source(), ETargetUse::mayHoldFiles), {}, CRestoreFilter({}, Source()),
                           options, sinks, progress);
    Edit("large", 1);
    restore.Run(opened.GetChunkSource(root, state));
    EXPECT_THAT(troubles,
                testing::ElementsAre(Source("large") + ": what was read back at byte 0 is not what was written"));
    EXPECT_EQ(restore.GetStatistics().verified, 0U);
}

TEST_F(RestoreRace, AStoreThatFailsEndsItAndNothingIsDeleted) {
    WriteFile("file", RandomBytes(3U << 20U, 1));
    (void)Backup();
    WriteFile("file", "edited");
    WriteFile("extra", "mine");
    options_.wrapStore = [](std::shared_ptr<cloudclientlib::ICloudClient> client) {
        auto faults = std::make_shared<cloudclientlib::CFaultClient>(std::move(client));
        faults->Arm({1, cloudclientlib::EFaultMode::notDone, {cloudclientlib::EOperation::downloadFileRange}, true});
        return faults;
    };
    SRestoreOptions options;
    options.overwrite = EOverwrite::ifChanged;
    options.deleteOthers = true;
    std::vector<std::string> troubles;
    SRestoreSinks sinks;
    sinks.onTrouble = [&](const STrouble& trouble) { troubles.push_back(trouble.reason); };
    EXPECT_THROW((void)RunRestore(options_, options, sinks), exc::CExc);
    EXPECT_THAT(troubles, testing::IsEmpty()) << "the file is not lost";
    EXPECT_THAT(FilesUnder(Source(), ""), testing::ElementsAre(HasSubstr("/extra"), HasSubstr("/file")));
}

TEST_F(RestoreRace, WhatCameIntoAFolderMeanwhileIsNotDeletedWhenAPatternProtectsIt) {
    const auto backup = Backup();
    MakeFolder("mine");
    WriteFile("mine/a", "a");
    COpenedCheckpoint opened(options_, "latest");
    const SRoot root = opened.GetDocument().roots.front();
    const CMetaState state = opened.LoadMetadata(root);
    SSourceRestoreOptions options;
    options.overwrite = EOverwrite::ifChanged;
    options.deleteOthers = true;
    SRestoreSelection selection;
    selection.exclude = {"*.log"};
    SRestoreSinks sinks;
    SProgress progress;
    CSourceRestore restore(state, CRestoreTarget(Source(), ETargetUse::mayHoldFiles), {},
                           CRestoreFilter(selection, Source()), options, sinks, progress);
    WriteFile("mine/b.log", "b");
    restore.Run(opened.GetChunkSource(root, state));
    EXPECT_THAT(FilesUnder(Source(), ""), testing::ElementsAre(HasSubstr("mine/b.log")));
    EXPECT_EQ(restore.GetStatistics().deleted, 1U);
    EXPECT_EQ(restore.GetStatistics().errors, 1U);
}

}  // namespace
}  // namespace agent
