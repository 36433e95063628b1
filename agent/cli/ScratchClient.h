#pragma once

#include <memory>
#include <string>

#include "cloudclientlib/ICloudClient.h"

namespace agent {

/// A client on one folder of a store, as if the folder were the whole store: its root cannot be written, counts are of
/// what lies below it, and failures name paths as the caller gave them. What the store's own client promises is neither
/// mended nor broken.
///
/// As safe from many threads as the store's client, which it shares. Fails with nothing of its own but a write of the
/// root (CCloudExc, kind conflict).
[[nodiscard]] std::shared_ptr<cloudclientlib::ICloudClient> MakeScratchClient(
    std::shared_ptr<cloudclientlib::ICloudClient> store, const std::string& folder);

}  // namespace agent
