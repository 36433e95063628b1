#include "cloudbackuplib/CloudPaths.h"

#include <gtest/gtest.h>

#include <limits>

namespace cloudbackuplib::backup::paths {
namespace {

const guid::guid_t storageId = guid::guid_t::FromStr("0123abcd-4567-89ab-cdef-0123456789ab");

TEST(CloudPaths, LayOutABackup) {
    EXPECT_EQ(GetBackupFolder("B"), "/B");
    EXPECT_EQ(GetBackupMetaItemPath("B", "item"), "/B/Metadata/item");
    EXPECT_EQ(GetCheckpointFolder("B"), "/B/Metadata/Checkpoint");
    EXPECT_EQ(GetCheckpointLongTermFolder("B"), "/B/Metadata/CheckpointLongTerm");
    EXPECT_EQ(GetBackupBlockFolder("B", "store"), "/B/BlockStore/store");
}

TEST(CloudPaths, NumberCheckpointsInPlainDecimal) {
    EXPECT_EQ(GetCheckpointPath("B", 0), "/B/Metadata/Checkpoint/0");
    EXPECT_EQ(GetCheckpointPath("B", 12), "/B/Metadata/Checkpoint/12");
    EXPECT_EQ(GetCheckpointLongTermPath("B", 0), "/B/Metadata/CheckpointLongTerm/0");
    EXPECT_EQ(GetCheckpointLongTermPath("B", 12), "/B/Metadata/CheckpointLongTerm/12");
    EXPECT_EQ(GetCheckpointLongTermPath("B", std::numeric_limits<unsigned long>::max()),
              "/B/Metadata/CheckpointLongTerm/18446744073709551615");
    EXPECT_EQ(GetCheckpointPath("B", std::numeric_limits<unsigned long>::max()),
              "/B/Metadata/Checkpoint/18446744073709551615");
}

TEST(CloudPaths, JoinWhatTheyGetUnchecked) {
    EXPECT_EQ(GetBackupFolder(""), "/");
    EXPECT_EQ(GetCheckpointFolder(""), "//Metadata/Checkpoint");
    EXPECT_EQ(GetCheckpointPath("", 3), "//Metadata/Checkpoint/3");
    EXPECT_EQ(GetCheckpointLongTermFolder(""), "//Metadata/CheckpointLongTerm");
    EXPECT_EQ(GetCheckpointLongTermPath("", 3), "//Metadata/CheckpointLongTerm/3");
    EXPECT_EQ(GetBackupMetaItemPath("", ""), "//Metadata/");
    EXPECT_EQ(GetBackupBlockFolder("", ""), "//BlockStore/");
    EXPECT_EQ(EnumCloudBlockSubfolders("", storageId)[1], "//BlockStore/0123abcd-4567-89ab-cdef-0123456789ab/01");
    EXPECT_EQ(GetBackupMetaItemPath("a/../b", "/x"), "/a/../b/Metadata//x");
    EXPECT_EQ(GetBackupBlockFolder("B", ""), "/B/BlockStore/");
}

TEST(CloudPaths, PutABlockIntoTheSubfolderOfItsFirstByte) {
    EXPECT_EQ(GetBackupBlockPath("B", storageId, "0aff"), "/B/BlockStore/0123abcd-4567-89ab-cdef-0123456789ab/0a/0aff");
}

TEST(CloudPaths, NameBlocksByTheirDigest) {
    EXPECT_EQ(DigestToBlockName(std::vector<char>{'\x0A', '\xFF'}), "0aff");
    EXPECT_EQ(DigestToBlockName(std::vector<char>{}), "");
    EXPECT_EQ(DigestToBlockName(std::vector<char>{'\x01', '\x23', '\x45', '\x67', '\x89', '\xab', '\xcd', '\xef'}),
              "0123456789abcdef");
}

TEST(CloudPaths, NameBlocksByTheirMd5) {
    EXPECT_EQ(DigestToBlockName(digest::Md5(std::string_view(""))), "d41d8cd98f00b204e9800998ecf8427e");
    digest::md5_digest_t digest;
    digest.bytes = {0x00, 0x0f, 0xf0, 0xff, 0x80, 0x7f, 0x10, 0x01, 0, 0, 0, 0, 0, 0, 0, 0xab};
    EXPECT_EQ(DigestToBlockName(digest), "000ff0ff807f100100000000000000ab");
    EXPECT_EQ(DigestToBlockName(digest), digest.ToAStr());
}

TEST(CloudPaths, EnumerateThe256SubfoldersInOrder) {
    const auto subfolders = EnumCloudBlockSubfolders("B", storageId);
    const std::string folder = "/B/BlockStore/0123abcd-4567-89ab-cdef-0123456789ab/";
    ASSERT_EQ(subfolders.size(), 256U);
    EXPECT_EQ(subfolders.front(), folder + "00");
    EXPECT_EQ(subfolders.back(), folder + "ff");
    for (std::size_t i = 0; i < subfolders.size(); ++i) {
        EXPECT_EQ(subfolders[i], folder + DigestToBlockName(std::vector<char>{static_cast<char>(i)}));
    }
}

}  // namespace
}  // namespace cloudbackuplib::backup::paths
