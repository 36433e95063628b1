#include <functional>

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

    /// Plans to bring the last checkpoint's root back to where it was; then `change` happens, then the restore.
    SRestoreStatistics RestoreInPlace(const SSourceRestoreOptions& options, const SRestoreSelection& selection,
                                      const SRestoreSinks& sinks, const std::function<void()>& change) {
        COpenedCheckpoint opened(options_, "latest");
        const SRoot root = opened.GetDocument().roots.front();
        const CMetaState state = opened.LoadMetadata(root);
        SProgress progress;
        CSourceRestore restore(state, CRestoreTarget(Source(), ETargetUse::mayHoldFiles), {},
                               CRestoreFilter(selection, Source()), options, sinks, progress);
        change();
        restore.Run(opened.GetChunkSource(root, state));
        return restore.GetStatistics();
    }
};

TEST_F(RestoreRace, VerifySeesAChangeInWhatIsTakenOverFromTheFileThatIsThere) {
    WriteFile("large", RandomBytes(12U << 20U, 1));
    (void)Backup();
    Edit("large", 6 << 20U);
    SSourceRestoreOptions options;
    options.overwrite = EOverwrite::ifChanged;
    options.verify = true;
    std::vector<std::string> troubles;
    SRestoreSinks sinks;
    sinks.onTrouble = [&](const STrouble& trouble) { troubles.push_back(trouble.path + ": " + trouble.reason); };
    const auto statistics = RestoreInPlace(options, {}, sinks, [&] { Edit("large", 1); });
    EXPECT_THAT(troubles,
                testing::ElementsAre(Source("large") + ": what was read back at byte 0 is not what was written"));
    EXPECT_EQ(statistics.verified, 0U);
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
    (void)Backup();
    MakeFolder("mine");
    WriteFile("mine/a", "a");
    SSourceRestoreOptions options;
    options.overwrite = EOverwrite::ifChanged;
    options.deleteOthers = true;
    SRestoreSelection selection;
    selection.exclude = {"*.log"};
    const auto statistics = RestoreInPlace(options, selection, {}, [&] { WriteFile("mine/b.log", "b"); });
    EXPECT_THAT(FilesUnder(Source(), ""), testing::ElementsAre(HasSubstr("mine/b.log")));
    EXPECT_EQ(statistics.deleted, 1U);
    EXPECT_EQ(statistics.errors, 1U);
}

}  // namespace
}  // namespace agent
