#include "clients/registry/S3Location.h"

#include <gtest/gtest.h>

#include <map>

#include "cloudclientlib/CloudExc.h"

namespace clients {
namespace {

using variables_t = std::map<std::string, std::string>;

const variables_t keys{{"AWS_ACCESS_KEY_ID", "id"}, {"AWS_SECRET_ACCESS_KEY", "secret"}};

environment_t Of(const variables_t& variables) {
    return [variables](const std::string& name) {
        const auto found = variables.find(name);
        return found == variables.end() ? std::string() : found->second;
    };
}

std::string FailureOf(const std::string& address, const variables_t& variables = keys) {
    try {
        static_cast<void>(ReadS3Location(address, Of(variables)));
    } catch (const cloudclientlib::CCloudExc& failure) {
        return failure.GetMessage();
    }
    return "read";
}

TEST(S3Location, IsAnAddressAndTheEnvironment) {
    variables_t variables = keys;
    variables["AWS_REGION"] = "eu-1";
    variables["AWS_SESSION_TOKEN"] = "token";
    variables["AWS_CA_BUNDLE"] = "/etc/ca.pem";
    const auto location = ReadS3Location("https://Store.example:9000/bucket/some/folder", Of(variables));
    EXPECT_EQ(location.options.bucket.endpoint, "https://store.example:9000");
    EXPECT_EQ(location.options.bucket.name, "bucket");
    EXPECT_EQ(location.options.bucket.region, "eu-1");
    EXPECT_FALSE(location.options.bucket.virtualHosted);
    EXPECT_EQ(location.options.prefix, "some/folder");
    EXPECT_EQ(location.options.http.caFile, "/etc/ca.pem");
    const auto credentials = location.credentials->Get();
    EXPECT_EQ(credentials->accessKeyId, "id");
    EXPECT_EQ(std::string(credentials->secretAccessKey.begin(), credentials->secretAccessKey.end()), "secret");
    EXPECT_EQ(std::string(credentials->sessionToken.begin(), credentials->sessionToken.end()), "token");
}

TEST(S3Location, RegionsHaveAnOrder) {
    variables_t variables = keys;
    EXPECT_EQ(ReadS3Location("https://h/b", Of(variables)).options.bucket.region, "us-east-1");
    variables["AWS_DEFAULT_REGION"] = "second";
    EXPECT_EQ(ReadS3Location("https://h/b", Of(variables)).options.bucket.region, "second");
    variables["AWS_REGION"] = "first";
    EXPECT_EQ(ReadS3Location("https://h/b/", Of(variables)).options.bucket.region, "first");
}

TEST(S3Location, WhatIsMissingIsNamed) {
    EXPECT_EQ(FailureOf("https://h"),
              "OpenLocation 's3:': the bucket is missing: it is written 's3:https://host[:port]/bucket'");
    EXPECT_EQ(FailureOf("https://h/b", {}),
              "OpenLocation 's3:': the environment variable AWS_ACCESS_KEY_ID is not set");
    EXPECT_EQ(FailureOf("https://h/b", {{"AWS_ACCESS_KEY_ID", "id"}}),
              "OpenLocation 's3:': the environment variable AWS_SECRET_ACCESS_KEY is not set");
}

TEST(S3Location, WrittenWronglyItIsNotRepeated) {
    for (const char* wrong :
         {"", "bucket", "ftp://h/b", "https://id:password@h/b", "https:///b", "https://h/b?password"}) {
        const std::string failure = FailureOf(wrong);
        EXPECT_TRUE(failure.starts_with("OpenLocation 's3:': it is written 's3:https://host[:port]/bucket': "))
            << wrong << ": " << failure;
        EXPECT_EQ(failure.find("password"), std::string::npos) << failure;
    }
}

}  // namespace
}  // namespace clients
