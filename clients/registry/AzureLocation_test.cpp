#include "clients/registry/AzureLocation.h"

#include <gtest/gtest.h>

#include "cloudclientlib/CloudExc.h"

namespace clients {
namespace {

environment_t Of(const std::string& value) {
    return [value](const std::string& name) { return name == "AZURE_STORAGE_CONNECTION_STRING" ? value : ""; };
}

constexpr const char* connection =
    "DefaultEndpointsProtocol=https;AccountName=joe;AccountKey=c2VjcmV0;EndpointSuffix=core.example";

std::string AzureFailureOf(const std::string& container, const std::string& value) {
    try {
        static_cast<void>(ReadAzureLocation(container, Of(value)));
    } catch (const cloudclientlib::CCloudExc& failure) {
        return failure.GetMessage();
    }
    return "read";
}

TEST(AzureLocation, IsAContainerAndTheEnvironment) {
    const auto location = ReadAzureLocation("backups/some/folder/", Of(connection));
    EXPECT_EQ(location.options.container, "backups");
    EXPECT_EQ(location.options.prefix, "some/folder");
    EXPECT_EQ(location.account.name, "joe");
    EXPECT_EQ(location.account.endpoint.host, "joe.blob.core.example");
    EXPECT_EQ(ReadAzureLocation("backups", Of(connection)).options.prefix, "");
}

TEST(AzureLocation, WhatIsMissingIsNamed) {
    EXPECT_EQ(AzureFailureOf("", connection),
              "OpenLocation 'azure:': the container's name is missing: it is written 'azure:CONTAINER'");
    EXPECT_EQ(AzureFailureOf("backups", ""),
              "OpenLocation 'azure:': the environment variable AZURE_STORAGE_CONNECTION_STRING is not set");
}

TEST(AzureLocation, SecretsAreNotRepeated) {
    const std::string failure = AzureFailureOf("backups", "AccountName=joe;AccountKey=!secret!");
    EXPECT_TRUE(failure.starts_with("OpenLocation 'azure:': AZURE_STORAGE_CONNECTION_STRING: ")) << failure;
    EXPECT_EQ(failure.find("secret"), std::string::npos) << failure;
}

}  // namespace
}  // namespace clients
