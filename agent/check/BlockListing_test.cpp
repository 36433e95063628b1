#include "agent/check/BlockListing.h"

#include <gtest/gtest.h>

#include "clients/memory/MemoryClient.h"
#include "cloudbackuplib/CloudPaths.h"

namespace {

namespace paths = cloudbackuplib::backup::paths;

const guid::guid_t storageId = guid::guid_t::FromStr("11111111-2222-3333-4444-555555555555");

void Upload(cloudclientlib::ICloudClient& client, const std::string& path, const std::string& text) {
    client.UploadFileAsync(path, std::make_shared<cnt::array_t<char>>(text.begin(), text.end()))->Wait();
}

TEST(BlockListing, KnowsTheBlocksAndWhatNobodyNeeds) {
    clients::CMemoryClient client{clients::SMemoryOptions{}};
    const auto one = digest::Md5(std::string("one"));
    const auto two = digest::Md5(std::string("three"));
    const std::string folder = paths::GetBackupBlockFolder("backup", storageId.ToAStr());
    Upload(client, paths::GetBackupBlockPath("backup", storageId, paths::DigestToBlockName(one)), "one");
    Upload(client, paths::GetBackupBlockPath("backup", storageId, paths::DigestToBlockName(two)), "three");
    Upload(client, folder + "/ab/stray", "12");
    Upload(client, folder + "/ab/" + paths::DigestToBlockName(one), "1234");  // in another's subfolder
    Upload(client, folder + "/stray", "1");

    agent::CBlockListing listing(client, "backup", storageId.ToAStr());
    ASSERT_NE(listing.Find(one.bytes), nullptr);
    EXPECT_EQ(listing.Find(one.bytes)->size, 3U);
    EXPECT_EQ(listing.Find(digest::Md5(std::string("none")).bytes), nullptr);
    EXPECT_EQ(listing.CountUnneeded().objects, 5U);
    listing.Find(one.bytes)->isNeeded = true;
    EXPECT_EQ(listing.CountUnneeded().objects, 4U);
    EXPECT_EQ(listing.CountUnneeded().bytes, 5U + 2 + 4 + 1);
}

TEST(BlockListing, AStorageWithoutBlocksIsEmpty) {
    clients::CMemoryClient client{clients::SMemoryOptions{}};
    EXPECT_EQ(agent::CBlockListing(client, "backup", storageId.ToAStr()).CountUnneeded().objects, 0U);
}

}  // namespace
