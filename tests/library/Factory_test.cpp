#include "cloudbackuplib/AzureConnectionSpec.h"
#include "cloudbackuplib/S3ConnectionSpec.h"
#include "common/exc.h"
#include "tests/library/BackupFixture.h"
#include "tests/library/FactoryTexts.h"

// The factory as it ships: no service can be reached through it.
namespace test {
namespace {

using cloudbackuplib::backup::platform::azure::SAzureConnectionSpec;
using cloudbackuplib::backup::platform::s3::CS3ConnectionSpec;
using testing::IsEmpty;

const std::string s3Reader =
    "static cloudbackuplib::backup::platform::s3::CS3ConnectionSpec "
    "cloudbackuplib::backup::platform::s3::CS3ConnectionSpec::Deserialize(xml::xml_holder_t&)";
const std::string azureReader =
    "static cloudbackuplib::backup::platform::azure::SAzureConnectionSpec "
    "cloudbackuplib::backup::platform::azure::SAzureConnectionSpec::Deserialize(const string&)";

TEST(RepositoryFactory, S3EndsAtTheReaderWithoutALogLine) {
    const RecordingSink log;
    const std::string spec = CS3ConnectionSpec({}).Serialize();
    for (const SFactoryOperation& operation : S3Operations()) {
        EXPECT_EQ(FailureOf([&] { operation.dispatched(spec); }), operation.context + ": " + s3Reader);
        EXPECT_EQ(FailureOf([&] { operation.direct(spec); }), operation.context + ": " + s3Reader);
    }
    EXPECT_THAT(log.GetEntries(), IsEmpty());
}

TEST(RepositoryFactory, S3SaysWhatIsNoSpecification) {
    EXPECT_EQ(FailureOf([] { (void)CCloudRepositoryFactory::OpenS3Repository("<Other/>"); }),
              "Failed to open S3 repository: Cannot find required node: S3ConnSpec");
}

TEST(RepositoryFactory, AzureEndsAtTheReaderWithoutALogLine) {
    const RecordingSink log;
    for (const SFactoryOperation& operation : AzureOperations()) {
        const std::string expected =
            operation.context + ": Failed to deserialize AzureConnSpec from xml string: [<any/>]: " + azureReader;
        EXPECT_EQ(FailureOf([&] { operation.dispatched("<any/>"); }), expected);
        EXPECT_EQ(FailureOf([&] { operation.direct("<any/>"); }), expected);
    }
    EXPECT_THAT(log.GetEntries(), IsEmpty());
}

TEST(RepositoryFactory, TheCauseIsTheNotImplementedError) {
    try {
        (void)CCloudRepositoryFactory::OpenRepository(ECloudService::AmazonS3, CS3ConnectionSpec({}).Serialize());
        ADD_FAILURE() << "no failure";
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_EQ(failure.GetMessage(), "Failed to open S3 repository");
        EXPECT_TRUE(exc::FindCause<exc::CNotImplExc>(failure));
    }
}

TEST(RepositoryFactory, OtherServicesAreUnsupported) {
    using operation_t = void (*)(ECloudService::type);
    const std::vector<operation_t> operations = {
        [](ECloudService::type s) { (void)CCloudRepositoryFactory::EnumRepositories(s, ""); },
        [](ECloudService::type s) { (void)CCloudRepositoryFactory::InitializeRepository(s, ""); },
        [](ECloudService::type s) { (void)CCloudRepositoryFactory::OpenRepository(s, ""); },
        [](ECloudService::type s) { CCloudRepositoryFactory::DeleteRepository(s, ""); },
    };
    for (const operation_t operation : operations) {
        for (const auto service : {ECloudService::OneDrive, ECloudService::OneDriveForBusiness,
                                   ECloudService::OneDriveGraph, ECloudService::AmazonEBS}) {
            EXPECT_EQ(FailureOf([&] { operation(service); }),
                      "Unsupported cloud service: '" + ECloudService::ToStr(service) + "'");
        }
        EXPECT_EQ(FailureOf([&] { operation(static_cast<ECloudService::type>(6)); }),
                  "Unknown cloud service value: '6'");
    }
}

TEST(RepositoryFactory, DeletionFailsAsOpeningDoes) {
    EXPECT_EQ(FailureOf([] {
                  CCloudRepositoryFactory::DeleteRepository(ECloudService::AmazonS3, CS3ConnectionSpec({}).Serialize());
              }),
              "Failed to open S3 repository: " + s3Reader);
    EXPECT_EQ(FailureOf([] { CCloudRepositoryFactory::DeleteRepository(ECloudService::AzureBlobStorage, "x"); }),
              "Failed to open Azure Blob Storage repository: Failed to deserialize AzureConnSpec from xml string: "
              "[x]: " +
                  azureReader);
}

}  // namespace
}  // namespace test
