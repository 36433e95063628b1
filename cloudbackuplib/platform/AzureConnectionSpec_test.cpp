#include "cloudbackuplib/AzureConnectionSpec.h"

#include <gtest/gtest.h>

#include "common/exc.h"

namespace cloudbackuplib::backup::platform::azure {
namespace {

const guid::guid_t clientId = guid::guid_t::FromStr("0123abcd-4567-89ab-cdef-0123456789ab");
const std::string secret = "AccountName=a;AccountKey=c2VjcmV0";

SAzureConnectionSpec Spec() {
    return {secret, "box", ECloudRepoType::external, {"Team", SCloudRepositoryClientInfo{clientId, "host", "Anna"}}};
}

TEST(AzureConnectionSpec, WritesEverythingInItsOrder) {
    EXPECT_EQ(Spec().Serialize(),
              "<AzureConnectionSpec ConnectionString=\"AccountName=a;AccountKey=c2VjcmV0\" ContainerName=\"box\">\n"
              "    <Repository FolderName=\"Team\" />\n"
              "    <ClientInfo Type=\"host\" Name=\"Anna\" Id=\"0123abcd-4567-89ab-cdef-0123456789ab\" />\n"
              "</AzureConnectionSpec>\n");
}

TEST(AzureConnectionSpec, WritesTheRepositoryAlways) {
    EXPECT_EQ(SAzureConnectionSpec{}.Serialize(),
              "<AzureConnectionSpec ConnectionString=\"\" ContainerName=\"\">\n"
              "    <Repository FolderName=\"\" />\n"
              "</AzureConnectionSpec>\n");
}

TEST(AzureConnectionSpec, LogsItselfWithoutItsSecret) {
    SAzureConnectionSpec spec = Spec();
    EXPECT_EQ(spec.ToLogStr(),
              "AzureBlobStorage connection, container name: [box], repository: [type: external, name: Team, client id: "
              "0123abcd-4567-89ab-cdef-0123456789ab]");
    spec.repositoryType = ECloudRepoType::personal;
    spec.repository.client.Reset();
    spec.containerName = "%2";
    EXPECT_EQ(spec.ToLogStr(),
              "AzureBlobStorage connection, container name: [%2], repository: [type: personal, name: Team]");
}

TEST(AzureConnectionSpec, AnUnknownTypeHasNoLogForm) {
    SAzureConnectionSpec spec = Spec();
    spec.repositoryType = static_cast<ECloudRepoType::type>(2);
    try {
        (void)spec.ToLogStr();
        ADD_FAILURE() << "no failure";
    } catch (const exc::CRuntimeExc& failure) {
        EXPECT_STREQ(failure.what(), "Unknown cloud repository type value: '2'");
    }
}

TEST(AzureConnectionSpec, DoesNotReadDocuments) {
    const std::string signature =
        "static cloudbackuplib::backup::platform::azure::SAzureConnectionSpec "
        "cloudbackuplib::backup::platform::azure::SAzureConnectionSpec::Deserialize(const string&)";
    for (const std::string text : {"", "any %1 text", "<AzureConnectionSpec/>"}) {
        try {
            (void)SAzureConnectionSpec::Deserialize(text);
            ADD_FAILURE() << "no failure";
        } catch (const exc::CRuntimeExc& failure) {
            EXPECT_EQ(failure.GetMessage(), "Failed to deserialize AzureConnSpec from xml string: [" + text + "]");
            EXPECT_EQ(failure.what(), failure.GetMessage() + ": " + signature);
            EXPECT_TRUE(exc::FindCause<exc::CNotImplExc>(failure));
        }
    }
}

}  // namespace
}  // namespace cloudbackuplib::backup::platform::azure
