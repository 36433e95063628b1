#pragma once

#include <memory>

#include "clients/s3/S3Client.h"

namespace clients {

/// Opens a bucket: asks the service once, so that a mistake in the address, the keys or the region is told at once and
/// not in the midst of work. With `make`, a bucket that is not there is made. Throws CCloudExc of operation
/// "OpenBucket".
[[nodiscard]] std::shared_ptr<CS3Client> OpenS3Bucket(SS3ClientOptions options,
                                                      std::shared_ptr<s3::ICredentials> credentials, bool make);

}  // namespace clients
