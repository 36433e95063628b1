#include <thread>

#include "cloudbackuplib/CloudBackupLibCtx.h"
#include "tests/library/ContextFactory.h"
#include "tests/library/RepositoryFixture.h"

namespace test {
namespace {

using cloudbackuplib::CCloudBackupLibCtx;

class ContextThreads : public RepositoryTest {};

TEST_F(ContextThreads, EightThreadsShareOneContext) {
    CCloudBackupLibCtx::ResetInstance();
    const auto context = CCloudBackupLibCtx::Instance();
    FactoryStandIn() = {Create(), {}};
    context->AddConnection("shared", "AmazonS3", "", nullptr);
    std::vector<std::string> failures(8);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i != failures.size(); ++i) {
        threads.emplace_back([&context, &failure = failures[i], own = "own" + std::to_string(i)] {
            failure = FailureOf([&] {
                context->AddConnection(own, "AmazonS3", "", nullptr);
                for (unsigned long round = 0; round != 5; ++round) {
                    const auto session = context->StartBackupSession("shared", {}, own, round, false);
                    session->CreateCheckpoint("state", "");
                    (void)context->EnumBackups("shared", {});
                    if (context->GetBackupSession("shared", own) != session) {
                        throw exc::CRuntimeExc("another's session");
                    }
                    context->CloseBackupSession("shared", own);
                }
                (void)context->GetStorageQuota(own);
            });
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(failures, testing::Each("no failure"));
    EXPECT_EQ(context->EnumBackups("shared", {}).size(), 8U);
    FactoryStandIn() = {};
    CCloudBackupLibCtx::ResetInstance();
}

}  // namespace
}  // namespace test
