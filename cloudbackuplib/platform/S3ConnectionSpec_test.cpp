#include "cloudbackuplib/S3ConnectionSpec.h"

#include <gtest/gtest.h>

#include "common/exc.h"
#include "tests/support/XmlDamage.h"

namespace cloudbackuplib::backup::platform::s3 {
namespace {

using cloudclientlib::s3::SS3CredentialsKeys;
using cloudclientlib::s3::SS3ProxyConfig;
using cloudclientlib::s3::SS3RoleAuth;

const std::string clientText = "0123abcd-4567-89ab-cdef-0123456789ab";
const guid::guid_t clientId = guid::guid_t::FromStr(clientText);

/// Everything that a specification can hold.
SS3ConnSpec FullSpec() {
    SS3ConnSpec spec;
    spec.bucketAddr = {"https://s3.example.org:9000", "eu-north-1", "bucket",
                       SS3ProxyConfig{"http://proxy:3128", "joe", "pa<ss"}};
    spec.credentials = SS3CredentialsKeys{"AKID", "secret", "token"};
    spec.roleAuth = SS3RoleAuth{"role", "10.0.0.1"};
    spec.restClientId = clientId;
    spec.repository.Set({"Team", SCloudRepositoryClientInfo{clientId, "host", "Anna"}});
    spec.options = {true, false};
    return spec;
}

const std::string fullText =
    "<S3ConnSpec>\n"
    "    <BucketAddr ApiEndpoint=\"https://s3.example.org:9000\" Region=\"eu-north-1\" BucketName=\"bucket\" "
    "AmazonS3RestClientId=\"0123abcd-4567-89ab-cdef-0123456789ab\">\n"
    "        <Proxy Endpoint=\"http://proxy:3128\" UserName=\"joe\" Password=\"pa&lt;ss\" />\n"
    "    </BucketAddr>\n"
    "    <Credentials AccessKeyId=\"AKID\" SecretAccessKey=\"secret\" SessionToken=\"token\" />\n"
    "    <RoleAuth RoleName=\"role\" MetadataHost=\"10.0.0.1\" />\n"
    "    <Repository FolderName=\"Team\" />\n"
    "    <ClientInfo Type=\"host\" Name=\"Anna\" Id=\"0123abcd-4567-89ab-cdef-0123456789ab\" />\n"
    "    <Options UseIAStorageClassForBlockObjects=\"true\" UseVirtualHostedStyle=\"false\" />\n"
    "</S3ConnSpec>\n";

std::string TextOf(const SS3ConnSpec& spec) { return CS3ConnectionSpec(spec).Serialize(); }

TEST(S3ConnectionSpec, GivesBackWhatItWasMadeOf) {
    const CS3ConnectionSpec spec(FullSpec());
    EXPECT_EQ(spec.GetBucketAddr(), FullSpec().bucketAddr);
    EXPECT_EQ(spec.GetCredentials(), FullSpec().credentials);
    EXPECT_EQ(spec.GetConnSpec().roleAuth, FullSpec().roleAuth);
    EXPECT_EQ(spec.GetConnSpec().restClientId, FullSpec().restClientId);
    EXPECT_EQ(spec.GetRepository().Get().folderName, "Team");
    EXPECT_EQ(spec.GetRepository().type, ECloudRepoType::external);
    EXPECT_EQ(spec.GetOptions(), FullSpec().options);
    EXPECT_EQ(&spec.GetBucketAddr(), &spec.GetConnSpec().bucketAddr);
}

TEST(S3ConnectionSpec, WritesEverythingInItsOrder) { EXPECT_EQ(TextOf(FullSpec()), fullText); }

TEST(S3ConnectionSpec, WritesOnlyWhatIsThere) {
    EXPECT_EQ(TextOf({}),
              "<S3ConnSpec>\n"
              "    <BucketAddr ApiEndpoint=\"\" Region=\"\" BucketName=\"\" />\n"
              "    <Options UseIAStorageClassForBlockObjects=\"false\" UseVirtualHostedStyle=\"false\" />\n"
              "</S3ConnSpec>\n");
}

TEST(S3ConnectionSpec, LeavesEmptyOptionalTextsOut) {
    SS3ConnSpec spec = FullSpec();
    spec.bucketAddr.proxy = SS3ProxyConfig{"http://proxy:3128", "", "a password without a name"};
    spec.credentials = SS3CredentialsKeys{"AKID", "secret", ""};
    spec.roleAuth = SS3RoleAuth{"role", ""};
    spec.repository.Set({"Team", {}});
    spec.options = {false, true};
    EXPECT_EQ(TextOf(spec),
              "<S3ConnSpec>\n"
              "    <BucketAddr ApiEndpoint=\"https://s3.example.org:9000\" Region=\"eu-north-1\" BucketName=\"bucket\" "
              "AmazonS3RestClientId=\"0123abcd-4567-89ab-cdef-0123456789ab\">\n"
              "        <Proxy Endpoint=\"http://proxy:3128\" />\n"
              "    </BucketAddr>\n"
              "    <Credentials AccessKeyId=\"AKID\" SecretAccessKey=\"secret\" />\n"
              "    <RoleAuth RoleName=\"role\" />\n"
              "    <Repository FolderName=\"Team\" />\n"
              "    <Options UseIAStorageClassForBlockObjects=\"false\" UseVirtualHostedStyle=\"true\" />\n"
              "</S3ConnSpec>\n");
}

TEST(S3ConnectionSpec, WritesAnEmptyPasswordBesideAName) {
    SS3ConnSpec spec;
    spec.bucketAddr.proxy = SS3ProxyConfig{"e", "joe", ""};
    EXPECT_NE(TextOf(spec).find("<Proxy Endpoint=\"e\" UserName=\"joe\" Password=\"\" />"), std::string::npos);
}

TEST(S3ConnectionSpec, TheTextOfItsCredentialsIsTheWholeDocument) {
    EXPECT_EQ(CS3ConnectionSpec(FullSpec()).SerializeCredentials(), fullText);
}

TEST(S3ConnectionSpec, WritesItsCredentialsAloneIntoAnElement) {
    xml::xml_holder_t document = xml::TiXmlCreateDocument();
    xml::xml_holder_t element = xml::TiXmlCreateChild(document, "Any");
    CS3ConnectionSpec(FullSpec()).SerializeCredentials(element);
    EXPECT_EQ(xml::TiXmlToStr(document),
              "<Any>\n"
              "    <Credentials AccessKeyId=\"AKID\" SecretAccessKey=\"secret\" SessionToken=\"token\" />\n"
              "    <RoleAuth RoleName=\"role\" MetadataHost=\"10.0.0.1\" />\n"
              "</Any>\n");
}

TEST(S3ConnectionSpec, ReadsTheConnectionWithoutItsBucket) {
    auto expected = FullSpec().bucketAddr;
    expected.bucketName.clear();
    EXPECT_EQ(CS3ConnectionSpec::DeserializeConnection(fullText), expected);
}

TEST(S3ConnectionSpec, ReadsAConnectionWithoutAProxy) {
    const auto address = CS3ConnectionSpec::DeserializeConnection(
        "<S3ConnSpec><BucketAddr ApiEndpoint=\"e\" Region=\"\"/></S3ConnSpec>");
    EXPECT_EQ(address, (cloudclientlib::s3::SS3BucketAddr{"e", "", "", {}}));
}

TEST(S3ConnectionSpec, ReadsAProxyWithoutName) {
    const auto address = CS3ConnectionSpec::DeserializeConnection(
        "<S3ConnSpec><BucketAddr ApiEndpoint=\"e\" Region=\"r\"><Proxy Endpoint=\"p\"/></BucketAddr></S3ConnSpec>");
    EXPECT_EQ(address.proxy.Get(), (SS3ProxyConfig{"p", "", ""}));
}

TEST(S3ConnectionSpec, ReadsKeysAndRole) {
    const auto [keys, role] = CS3ConnectionSpec::DeserializeCredentials(fullText);
    EXPECT_EQ(keys, FullSpec().credentials);
    EXPECT_EQ(role, FullSpec().roleAuth);
}

TEST(S3ConnectionSpec, ReadsKeysAlone) {
    const auto [keys, role] = CS3ConnectionSpec::DeserializeCredentials(
        "<S3ConnSpec><Credentials AccessKeyId=\"a\" SecretAccessKey=\"s\"/></S3ConnSpec>");
    EXPECT_EQ(keys.Get(), (SS3CredentialsKeys{"a", "s", ""}));
    EXPECT_FALSE(role.IsSet());
}

TEST(S3ConnectionSpec, ARoleWithoutMetadataHostGetsTheWellKnownOne) {
    for (const std::string host : {"", " MetadataHost=\"\""}) {
        const auto [keys, role] = CS3ConnectionSpec::DeserializeCredentials("<S3ConnSpec><RoleAuth RoleName=\"r\"" +
                                                                            host + "/></S3ConnSpec>");
        EXPECT_FALSE(keys.IsSet());
        EXPECT_EQ(role.Get(), (SS3RoleAuth{"r", "169.254.169.254"}));
    }
}

TEST(S3ConnectionSpec, FailsWithoutAnyCredentials) {
    const auto failure =
        test::FailureOf([](const std::string& text) { (void)CS3ConnectionSpec::DeserializeCredentials(text); },
                        "<S3ConnSpec><BucketAddr/></S3ConnSpec>");
    EXPECT_EQ(failure, "Either <Credentials> or <RoleAuth> node should be provided");
}

TEST(S3ConnectionSpec, NamesTheAttributeThatIsMissing) {
    const auto connection = [](const std::string& text) { (void)CS3ConnectionSpec::DeserializeConnection(text); };
    const auto credentials = [](const std::string& text) { (void)CS3ConnectionSpec::DeserializeCredentials(text); };
    const auto without = [](const std::string& name) {
        std::string text = fullText;
        const auto begin = text.find(" " + name + "=\"");
        text.erase(begin, text.find('"', begin + name.size() + 3) + 1 - begin);
        return text;
    };
    const auto names = [](const std::optional<std::string>& failure, const std::string& element,
                          const std::string& attribute) {
        return failure && failure->find(element) != std::string::npos && failure->find(attribute) != std::string::npos;
    };
    EXPECT_TRUE(names(test::FailureOf(connection, without("ApiEndpoint")), "BucketAddr", "ApiEndpoint"));
    EXPECT_TRUE(names(test::FailureOf(connection, without("Region")), "BucketAddr", "Region"));
    EXPECT_TRUE(names(test::FailureOf(connection, without("Endpoint")), "Proxy", "Endpoint"));
    EXPECT_TRUE(names(test::FailureOf(credentials, without("AccessKeyId")), "Credentials", "AccessKeyId"));
    EXPECT_TRUE(names(test::FailureOf(credentials, without("SecretAccessKey")), "Credentials", "SecretAccessKey"));
    EXPECT_TRUE(names(test::FailureOf(credentials, without("RoleName")), "RoleAuth", "RoleName"));
    for (const std::string optional : {"BucketName", "UserName", "Password", "AmazonS3RestClientId"}) {
        EXPECT_FALSE(test::FailureOf(connection, without(optional))) << optional;
    }
    EXPECT_FALSE(test::FailureOf(credentials, without("SessionToken")));
}

TEST(S3ConnectionSpec, NamesTheElementThatIsMissing) {
    const auto connection = [](const std::string& text) { (void)CS3ConnectionSpec::DeserializeConnection(text); };
    EXPECT_EQ(test::FailureOf(connection, "<S3ConnSpec/>"), "Cannot find required node: BucketAddr");
    EXPECT_EQ(test::FailureOf(connection, "<Other/>"), "Cannot find required node: S3ConnSpec");
}

TEST(S3ConnectionSpec, RefusesATruncatedTextAtEveryByte) {
    const auto read = [](const std::string& text) {
        (void)CS3ConnectionSpec::DeserializeConnection(text);
        (void)CS3ConnectionSpec::DeserializeCredentials(text);
    };
    EXPECT_FALSE(test::FailureOf(read, fullText));
    for (std::size_t length = 0; length + 1 < fullText.size(); ++length) {  // the last byte is a line end
        EXPECT_TRUE(test::FailureOf(read, fullText.substr(0, length))) << length;
    }
}

TEST(S3ConnectionSpec, DoesNotReadWholeDocuments) {
    const std::string signature =
        "static cloudbackuplib::backup::platform::s3::CS3ConnectionSpec "
        "cloudbackuplib::backup::platform::s3::CS3ConnectionSpec::Deserialize(xml::xml_holder_t&)";
    const auto text = [](const std::string& t) { (void)CS3ConnectionSpec::Deserialize(t); };
    const auto element = [](const std::string& t) {
        const auto root = xml::TiXmlGetChildExc(xml::TiXmlParseExc(t), "S3ConnSpec");
        (void)CS3ConnectionSpec::Deserialize(root);
    };
    EXPECT_EQ(test::FailureOf(text, fullText), signature);
    EXPECT_EQ(test::FailureOf(element, fullText), signature);
    EXPECT_THROW(text(fullText), exc::CNotImplExc);
    EXPECT_EQ(test::FailureOf(text, "<Other/>"), "Cannot find required node: S3ConnSpec");
}

TEST(S3ConnectionSpec, HasNoLogForm) {
    const CS3ConnectionSpec spec(FullSpec());
    const auto failure = test::FailureOf([&](const std::string&) { (void)spec.ToLogStr(); }, "");
    EXPECT_EQ(failure, "std::string cloudbackuplib::backup::platform::s3::CS3ConnectionSpec::ToLogStr() const");
    EXPECT_THROW((void)spec.ToLogStr(), exc::CNotImplExc);
}

}  // namespace
}  // namespace cloudbackuplib::backup::platform::s3
