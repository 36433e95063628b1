#pragma once

#include <memory>

#include "clients/s3/S3Multipart.h"

namespace clients::s3 {

/// Copies an object within the bucket: with one request, or in parts when it is larger than one request copies.
void CopyObject(const std::shared_ptr<CS3Connection>& connection, const SPlace& source, const SPlace& target,
                const SMultipartSizes& sizes, const CMultipartUpload::headers_t& headers);

}  // namespace clients::s3
