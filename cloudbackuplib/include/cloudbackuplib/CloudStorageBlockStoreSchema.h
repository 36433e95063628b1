#pragma once

#include <string>

#include "common/export.h"

namespace cloudbackuplib::backup {

/// How a storage's block store is laid out.
enum class CloudStorageBlockStoreSchema { legacy = 0, blobs = 1 };

/// "blobs" for the blobs schema, empty for every other value.
[[nodiscard]] CB_EXPORT std::string ToString(CloudStorageBlockStoreSchema schema);
/// The blobs schema for exactly "blobs", the legacy one for any other text.
[[nodiscard]] CB_EXPORT CloudStorageBlockStoreSchema CloudStgBlockStoreSchemaFromString(const std::string& text);

}  // namespace cloudbackuplib::backup
