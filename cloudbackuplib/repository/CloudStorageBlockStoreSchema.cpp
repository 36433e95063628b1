#include "cloudbackuplib/CloudStorageBlockStoreSchema.h"

namespace cloudbackuplib::backup {

namespace {

constexpr const char* blobsText = "blobs";

}  // namespace

std::string ToString(CloudStorageBlockStoreSchema schema) {
    return schema == CloudStorageBlockStoreSchema::blobs ? blobsText : "";
}

CloudStorageBlockStoreSchema CloudStgBlockStoreSchemaFromString(const std::string& text) {
    return text == blobsText ? CloudStorageBlockStoreSchema::blobs : CloudStorageBlockStoreSchema::legacy;
}

}  // namespace cloudbackuplib::backup
