#include "clients/registry/ClientRegistry.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "clients/directory/DirectoryClient.h"
#include "clients/directory/TestRoot.h"
#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/wrappers/LimitClient.h"

namespace {

using clients::ELocation;
using clients::OpenLocation;
using clients::SNetworkOptions;
using clients::directory::CTestRoot;
using cloudclientlib::CCloudExc;
using cloudclientlib::EFailure;

std::string RefusalOf(const std::string& location, ELocation mode = ELocation::existing) {
    try {
        static_cast<void>(OpenLocation(location, mode));
    } catch (const CCloudExc& failure) {
        return std::string(ToStr(failure.GetKind())) + "|" + failure.GetMessage();
    }
    return "opened";
}

void ExpectReaches(const std::string& location, const std::string& folder) {
    const auto client = OpenLocation(location, ELocation::existing);
    client->CreateFolderAsync("made")->Wait();
    EXPECT_EQ(::access((folder + "/made").c_str(), F_OK), 0) << location;
    EXPECT_EQ(::rmdir((folder + "/made").c_str()), 0);
}

TEST(ClientRegistry, DirSchemeGivesTheDirectoryClient) {
    const CTestRoot root;
    ExpectReaches("dir:" + root.GetPath(), root.GetPath());
}

TEST(ClientRegistry, PlainPathGivesTheDirectoryClient) {
    const CTestRoot root;
    ExpectReaches(root.GetPath(), root.GetPath());
}

TEST(ClientRegistry, PathThatBeginsWithASlashMayHoldAColon) {
    const CTestRoot root;
    const std::string folder = root.GetPath() + "/s3:bucket";
    ASSERT_EQ(::mkdir(folder.c_str(), 0700), 0);
    ExpectReaches(folder, folder);
    ExpectReaches("dir:" + folder, folder);
}

TEST(ClientRegistry, ColonFirstIsAPath) {
    EXPECT_EQ(RefusalOf(":nowhere-at-all"),
              "not found|OpenRoot ':nowhere-at-all': it or a folder above it does not exist");
}

TEST(ClientRegistry, FoldersAreUsedWithinLimitsToo) {
    const CTestRoot root;
    SNetworkOptions network;
    const auto open = [&] { return OpenLocation(root.GetPath(), ELocation::existing, network); };
    EXPECT_TRUE(std::dynamic_pointer_cast<clients::CDirectoryClient>(open()));
    network.connections = 1;
    EXPECT_EQ(open()->GetConcurrentTaskLimit(), 1U);
    network.connections = 256;
    EXPECT_TRUE(std::dynamic_pointer_cast<clients::CDirectoryClient>(open()));
    network.bytesPerSecondUp = 1;
    EXPECT_TRUE(std::dynamic_pointer_cast<cloudclientlib::CLimitClient>(open()));
    network.bytesPerSecondUp = 0;
    network.bytesPerSecondDown = 1;
    EXPECT_TRUE(std::dynamic_pointer_cast<cloudclientlib::CLimitClient>(open()));
}

TEST(ClientRegistry, CreatesWhatIsMissingOnlyWhenAsked) {
    const CTestRoot root;
    const std::string folder = root.GetPath() + "/new/deep";
    EXPECT_EQ(RefusalOf("dir:" + folder),
              "not found|OpenRoot '" + folder + "': it or a folder above it does not exist");
    EXPECT_EQ(RefusalOf("dir:" + folder, ELocation::createMissing), "opened");
    ExpectReaches(folder, folder);
}

TEST(ClientRegistry, UnknownSchemeIsNamedWithoutTheRest) {
    EXPECT_EQ(RefusalOf("ftp:user:secret@host/folder"),
              "other|OpenLocation 'ftp:': unknown kind of location; known are 'azure:', 'dir:', 's3:' and plain paths "
              "(a path with a colon is written 'dir:PATH')");
}

TEST(ClientRegistry, EmptyLocationsAreRefused) {
    EXPECT_EQ(RefusalOf(""), "other|OpenLocation '': the location is empty");
    EXPECT_EQ(RefusalOf("dir:"), "other|OpenLocation 'dir:': the folder's path is missing");
}

}  // namespace
