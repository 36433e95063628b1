#include "cloudbackuplib/CloudStorageBlockStoreSchema.h"

#include <gtest/gtest.h>

namespace cloudbackuplib::backup {
namespace {

TEST(CloudStorageBlockStoreSchema, HasATextForBlobsAlone) {
    EXPECT_EQ(ToString(CloudStorageBlockStoreSchema::blobs), "blobs");
    EXPECT_EQ(ToString(CloudStorageBlockStoreSchema::legacy), "");
    EXPECT_EQ(ToString(static_cast<CloudStorageBlockStoreSchema>(2)), "");
    EXPECT_EQ(ToString(static_cast<CloudStorageBlockStoreSchema>(-1)), "");
}

TEST(CloudStorageBlockStoreSchema, IsReadFromExactlyItsText) {
    EXPECT_EQ(CloudStgBlockStoreSchemaFromString("blobs"), CloudStorageBlockStoreSchema::blobs);
    for (const std::string text : {"", "Blobs", "BLOBS", "blob", "blobs ", " blobs", "1"}) {
        EXPECT_EQ(CloudStgBlockStoreSchemaFromString(text), CloudStorageBlockStoreSchema::legacy) << text;
    }
    EXPECT_EQ(CloudStgBlockStoreSchemaFromString(std::string("blobs\0", 6)), CloudStorageBlockStoreSchema::legacy);
}

TEST(CloudStorageBlockStoreSchema, HasFixedValues) {
    EXPECT_EQ(static_cast<int>(CloudStorageBlockStoreSchema::legacy), 0);
    EXPECT_EQ(static_cast<int>(CloudStorageBlockStoreSchema::blobs), 1);
}

}  // namespace
}  // namespace cloudbackuplib::backup
