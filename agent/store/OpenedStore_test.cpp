#include "agent/store/OpenedStore.h"

#include <gtest/gtest.h>

#include <fstream>

#include "clients/http/FakeServer.h"
#include "tests/support/TempDir.h"

namespace agent {
namespace {

using clients::ELocation;
using clients::http::CFakeServer;
using clients::http::SFakeAnswer;
using clients::http::SFakeRequest;

class OpenedStore : public testing::Test {
protected:
    std::string Location(const std::string& text) {
        std::ofstream(folder.GetPath() + "/spec.xml") << text;
        return "spec:" + folder.GetPath() + "/spec.xml";
    }

    void Upload(const SOpenedStore& store, const std::string& path) {
        store.client->UploadFileAsync(path, std::make_shared<cnt::array_t<char>>(1, 'x'))->Wait();
    }

    const test::TempDir folder;
    std::vector<SFakeRequest> requests;
    CFakeServer server{[this](const SFakeRequest& request) {
        requests.push_back(request);
        return SFakeAnswer{};
    }};
};

TEST_F(OpenedStore, PlainLocationsSayNothingOfTheRepository) {
    const auto store = OpenStore(folder.GetPath(), ELocation::existing, {});
    EXPECT_TRUE(store.client);
    EXPECT_EQ(store.repositoryName, "");
    EXPECT_FALSE(store.identity);
}

TEST_F(OpenedStore, AnS3SpecificationIsFollowed) {
    const auto store = OpenStore(Location(R"(<S3ConnSpec><BucketAddr ApiEndpoint=")" + server.GetEndpoint() +
                                          R"(" Region="eu-1" BucketName="bkt"/>
        <Credentials AccessKeyId="KEY" SecretAccessKey="secret" SessionToken="token"/>
        <Repository FolderName="golden"/><ClientInfo Type="host" Name="Anna" Id="c1000000-0000-4000-8000-00000000000a"/>
        <Options UseIAStorageClassForBlockObjects="true" UseVirtualHostedStyle="false"/></S3ConnSpec>)"),
                                 ELocation::existing, {});
    EXPECT_EQ(store.repositoryName, "golden");
    EXPECT_EQ(store.identity->clientName, "Anna");
    Upload(store, "a/BlockStore/s/00/x");
    Upload(store, "a/other");
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(requests[0].target, "/bkt?list-type=2&max-keys=1");
    EXPECT_NE(requests[0].headers["authorization"].find("Credential=KEY/"), std::string::npos);
    EXPECT_EQ(requests[1].headers["x-amz-storage-class"], "STANDARD_IA");
    EXPECT_EQ(requests[2].headers["x-amz-storage-class"], "");
}

TEST_F(OpenedStore, TheProxyOfASpecificationIsUsed) {
    const auto store =
        OpenStore(Location(R"(<S3ConnSpec><BucketAddr ApiEndpoint="http://store.example" Region="r" BucketName="bkt">
        <Proxy Endpoint=")" +
                           server.GetEndpoint() +
                           R"(" UserName="joe" Password="pw"/></BucketAddr>
        <Credentials AccessKeyId="KEY" SecretAccessKey="secret"/></S3ConnSpec>)"),
                  ELocation::existing, {});
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_TRUE(requests[0].target.starts_with("http://store.example/bkt")) << requests[0].target;
    EXPECT_TRUE(requests[0].headers.contains("proxy-authorization"));
}

TEST_F(OpenedStore, ARoleOfASpecificationIsAsked) {
    const std::string text = R"(<S3ConnSpec><BucketAddr ApiEndpoint=")" + server.GetEndpoint() +
                             R"(" Region="r" BucketName="bkt"/><RoleAuth RoleName="backup" MetadataHost=")" +
                             server.GetHost() + R"("/></S3ConnSpec>)";
    EXPECT_THROW(static_cast<void>(OpenStore(Location(text), ELocation::existing, {})), std::exception);
    ASSERT_FALSE(requests.empty());
    EXPECT_EQ(requests[0].target, "/latest/api/token");
}

TEST_F(OpenedStore, AnAzureSpecificationIsFollowed) {
    const auto store = OpenStore(
        Location(R"(<AzureConnectionSpec ConnectionString="AccountName=joe;AccountKey=c2VjcmV0;BlobEndpoint=)" +
                 server.GetEndpoint() +
                 R"(/joe" ContainerName="golden"><Repository FolderName="r"/></AzureConnectionSpec>)"),
        ELocation::existing, {});
    EXPECT_EQ(store.repositoryName, "r");
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_TRUE(requests[0].target.starts_with("/joe/golden?")) << requests[0].target;
}

TEST(BlockPath, IsWhereBlocksLie) {
    EXPECT_TRUE(IsBlockPath("/Draxo/Backup/r/Clients/c/set/BlockStore/s/00/0123"));
    EXPECT_FALSE(IsBlockPath("/Draxo/Backup/r/Clients/c/set/Checkpoints/1"));
}

}  // namespace
}  // namespace agent
