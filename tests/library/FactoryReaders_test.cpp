// The factory behind readers that succeed: this program has its own in the place of those that are not provided.

#include "cloudbackuplib/AzureConnectionSpec.h"
#include "cloudbackuplib/S3ConnectionSpec.h"
#include "tests/library/BackupFixture.h"
#include "tests/library/FactoryTexts.h"

namespace {

cloudbackuplib::backup::platform::s3::SS3ConnSpec g_s3Spec;
cloudbackuplib::backup::platform::azure::SAzureConnectionSpec g_azureSpec;

}  // namespace

namespace cloudbackuplib::backup::platform {

s3::CS3ConnectionSpec s3::CS3ConnectionSpec::Deserialize(const xml::xml_holder_t&) {
    return s3::CS3ConnectionSpec(g_s3Spec);
}
s3::CS3ConnectionSpec s3::CS3ConnectionSpec::Deserialize(const std::string&) { return s3::CS3ConnectionSpec(g_s3Spec); }
std::string s3::CS3ConnectionSpec::ToLogStr() const { return "S3 of " + spec_.bucketAddr.region; }

azure::SAzureConnectionSpec azure::SAzureConnectionSpec::Deserialize(const std::string&) { return g_azureSpec; }

}  // namespace cloudbackuplib::backup::platform

namespace test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class FactoryReaders : public testing::Test {
protected:
    FactoryReaders() {
        g_s3Spec = {};
        g_s3Spec.bucketAddr.region = "north";
        g_azureSpec = {"secret", "box", ECloudRepoType::external, {"Team", {}}};
    }

    /// The lines logged by one operation, and its failure.
    static std::pair<std::string, std::vector<std::string>> Run(void (*operation)(const std::string&)) {
        const RecordingSink log;
        const std::string failure = FailureOf([&] { operation("<any/>"); });
        EXPECT_EQ(log.GetEntries().size(), log.GetTexts(logging::level_t::info).size()) << "nothing but info";
        return {failure, log.GetTexts(logging::level_t::info)};
    }
};

TEST_F(FactoryReaders, APersonalS3RepositoryIsRefusedBeforeAnyLogLine) {
    g_s3Spec.repository.type = ECloudRepoType::personal;
    g_s3Spec.repository.Set({"Team", {}});
    for (const SFactoryOperation& operation : S3Operations()) {
        const auto [failure, lines] = Run(operation.dispatched);
        EXPECT_EQ(failure, operation.context + ": Unsupported S3 repository type: 'personal'");
        EXPECT_THAT(lines, IsEmpty());
    }
}

TEST_F(FactoryReaders, AnUnknownS3RepositoryTypeIsRefused) {
    g_s3Spec.repository.type = static_cast<ECloudRepoType::type>(7);
    for (const SFactoryOperation& operation : S3Operations()) {
        EXPECT_EQ(Run(operation.dispatched).first, operation.context + ": Unknown cloud repository type value: '7'");
    }
}

TEST_F(FactoryReaders, S3WithoutParametersLogsAndThenFails) {
    for (const SFactoryOperation& operation : S3Operations()) {
        const auto [failure, lines] = Run(operation.dispatched);
        EXPECT_EQ(failure, operation.context + ": External repository params not set");
        EXPECT_THAT(lines, ElementsAre(operation.logPrefix + "'S3 of north'"));
    }
}

TEST_F(FactoryReaders, AValidS3SpecificationEndsNotImplemented) {
    g_s3Spec.repository.Set({"Team", {}});
    for (const SFactoryOperation& operation : S3Operations()) {
        for (const auto function : {operation.dispatched, operation.direct}) {
            const auto [failure, lines] = Run(function);
            EXPECT_EQ(failure, operation.context + ": " + operation.signature);
            EXPECT_THAT(lines, ElementsAre(operation.logPrefix + "'S3 of north'"));
        }
    }
}

TEST_F(FactoryReaders, APersonalAzureRepositoryIsRefusedBeforeAnyLogLine) {
    g_azureSpec.repositoryType = ECloudRepoType::personal;
    for (const SFactoryOperation& operation : AzureOperations()) {
        const auto [failure, lines] = Run(operation.dispatched);
        EXPECT_EQ(failure, operation.context + ": Unsupported Azure repository type: 'personal'");
        EXPECT_THAT(lines, IsEmpty());
    }
}

TEST_F(FactoryReaders, AValidAzureSpecificationLogsTheSameLineForEveryOperationAndEndsNotImplemented) {
    for (const SFactoryOperation& operation : AzureOperations()) {
        for (const auto function : {operation.dispatched, operation.direct}) {
            const auto [failure, lines] = Run(function);
            EXPECT_EQ(failure, operation.context + ": " + operation.signature);
            EXPECT_THAT(lines, ElementsAre("Creating new external Azure repository. Connection spec: "
                                           "'AzureBlobStorage connection, container name: [box], repository: [type: "
                                           "external, name: Team]'"));
        }
    }
}

}  // namespace
}  // namespace test
