#include "agent/store/ConnectionSpec.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "tests/support/TempDir.h"

namespace agent {
namespace {

constexpr const char* s3Text = R"(<S3ConnSpec>
    <BucketAddr ApiEndpoint="https://s3.example.org:9000" Region="eu-north-1" BucketName="backups" AmazonS3RestClientId="0123abcd-4567-89ab-cdef-0123456789ab">
        <Proxy Endpoint="http://proxy.example.org:3128" UserName="joe" Password="of the proxy" />
    </BucketAddr>
    <Credentials AccessKeyId="AKIAEXAMPLE" SecretAccessKey="of the account" SessionToken="for an hour" />
    <RoleAuth RoleName="backup" MetadataHost="169.254.169.254" />
    <Repository FolderName="golden" />
    <ClientInfo Type="host" Name="Anna" Id="c1000000-0000-4000-8000-00000000000a" />
    <Options UseIAStorageClassForBlockObjects="true" UseVirtualHostedStyle="false" />
</S3ConnSpec>
)";

constexpr const char* azureText =
    R"(<AzureConnectionSpec ConnectionString="AccountName=backups;AccountKey=b2YgdGhlIGFjY291bnQ=" ContainerName="golden">
    <Repository FolderName="golden" />
    <ClientInfo Type="host" Name="Anna" Id="c1000000-0000-4000-8000-00000000000a" />
</AzureConnectionSpec>
)";

std::string FailureOf(const std::string& text) {
    try {
        static_cast<void>(ReadConnectionSpec(text));
    } catch (const std::exception& failure) {
        return failure.what();
    }
    return "read";
}

std::string Replaced(std::string text, const std::string& what, const std::string& with) {
    return text.replace(text.find(what), what.size(), with);
}

TEST(ConnectionSpec, WhatWasReadIsWrittenTheSame) {
    for (const char* text : {s3Text, azureText}) {
        EXPECT_EQ(WriteConnectionSpec(ReadConnectionSpec(text)), text);
    }
}

TEST(ConnectionSpec, TheLeastIsEnough) {
    const auto spec = ReadConnectionSpec(
        R"(<S3ConnSpec><BucketAddr ApiEndpoint="https://h" Region="" BucketName="b"/><RoleAuth RoleName="r"/></S3ConnSpec>)");
    const auto& s3 = std::get<s3_spec_t>(spec);
    EXPECT_EQ(s3.bucketAddr.bucketName, "b");
    EXPECT_FALSE(s3.repository.IsSet());
    EXPECT_FALSE(s3.options.useIAStorageClassForBlockObjects);
    EXPECT_EQ(s3.roleAuth.Get().metadataHost, "169.254.169.254");
    const auto azure = ReadConnectionSpec(R"(<AzureConnectionSpec ConnectionString="x" ContainerName="c"/>)");
    EXPECT_EQ(std::get<azure_spec_t>(azure).repository.folderName, "");
}

TEST(ConnectionSpec, WhatIsMissingIsNamed) {
    const auto lacks = [](const std::string& failure, const std::string& name) {
        return failure.find(name) != std::string::npos;
    };
    EXPECT_EQ(FailureOf("<Other/>"),
              "It is no connection specification: the root element is neither 'S3ConnSpec' nor 'AzureConnectionSpec'");
    EXPECT_TRUE(lacks(FailureOf(Replaced(s3Text, "ApiEndpoint", "Api")), "ApiEndpoint"));
    EXPECT_TRUE(lacks(FailureOf(Replaced(s3Text, "BucketName", "Name")), "BucketName"));
    EXPECT_TRUE(lacks(FailureOf(Replaced(s3Text, "FolderName", "Name")), "FolderName"));
    EXPECT_TRUE(lacks(FailureOf(Replaced(azureText, "ContainerName", "Name")), "ContainerName"));
    EXPECT_TRUE(lacks(FailureOf(Replaced(azureText, "ConnectionString", "String")), "ConnectionString"));
}

TEST(ConnectionSpec, DescribedItHasNoSecrets) {
    const std::string s3 = Describe(ReadConnectionSpec(s3Text));
    EXPECT_EQ(s3,
              "Kind: S3\n"
              "Endpoint: https://s3.example.org:9000\n"
              "Region: eu-north-1\n"
              "Bucket: backups\n"
              "Proxy: http://proxy.example.org:3128 as joe\n"
              "Access key: AKIAEXAMPLE, with a session token\n"
              "Role: backup from 169.254.169.254\n"
              "Repository: golden\n"
              "Client: c1000000-0000-4000-8000-00000000000a (Anna)\n"
              "Blocks: in the infrequent-access storage class\n"
              "Addressing: by the path");
    EXPECT_EQ(Describe(ReadConnectionSpec(azureText)),
              "Kind: Azure Blob Storage\n"
              "Container: golden\n"
              "Repository: golden\n"
              "Client: c1000000-0000-4000-8000-00000000000a (Anna)");
}

TEST(ConnectionSpec, FilesAreForTheirOwnerAndNeverReplaced) {
    const test::TempDir folder;
    const std::string path = folder.GetPath() + "/spec.xml";
    const auto spec = ReadConnectionSpec(s3Text);
    WriteConnectionSpecFile(path, spec);
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    EXPECT_EQ(WriteConnectionSpec(ReadConnectionSpecFile(path)), s3Text);
    try {
        WriteConnectionSpecFile(path, spec);
        ADD_FAILURE();
    } catch (const std::exception& failure) {
        EXPECT_TRUE(std::string(failure.what()).starts_with("Cannot write the connection specification '" + path + "'"))
            << failure.what();
    }
}

TEST(ConnectionSpec, FailuresNameTheFileAndNoSecret) {
    const test::TempDir folder;
    const std::string path = folder.GetPath() + "/spec.xml";
    const auto failure = [&] {
        try {
            static_cast<void>(ReadConnectionSpecFile(path));
        } catch (const std::exception& thrown) {
            return std::string(thrown.what());
        }
        return std::string("read");
    };
    const std::string start = "Cannot read the connection specification '" + path + "': ";
    EXPECT_TRUE(failure().starts_with(start)) << failure();
    for (const std::string& text : {Replaced(s3Text, "</S3ConnSpec>", ""), Replaced(s3Text, "FolderName", "Name"),
                                    Replaced(s3Text, "Region", "R"), std::string((1U << 20U) + 1, ' ')}) {
        std::ofstream(path) << text;
        EXPECT_TRUE(failure().starts_with(start)) << failure();
        EXPECT_EQ(failure().find("of the account"), std::string::npos) << failure();
        EXPECT_EQ(failure().find("of the proxy"), std::string::npos) << failure();
    }
}

}  // namespace
}  // namespace agent
