#include "clients/s3/S3Copy.h"

#include <algorithm>

#include "clients/s3/S3Failure.h"
#include "clients/s3/Signature.h"

namespace clients::s3 {

namespace {

/// Part sizes of a copy: no bytes pass through here, so they may be large.
constexpr std::uint64_t copiedPart = std::uint64_t{1} << 30U;

void CopyAtOnce(CS3Connection& connection, const SPlace& source, const SPlace& target, const std::string& sourceHeader,
                const CMultipartUpload::headers_t& headers) {
    SRequest request;
    request.method = "PUT";
    request.key = target.key;
    request.headers = headers;
    request.headers.emplace_back("x-amz-copy-source", sourceHeader);
    http::SHttpResult result = connection.Run(request);
    CheckSuccess(source.operation, source.path, result);
    if (ReadError(result.answer.body)) {  // the service answers before it is done, and may fail after that
        result.answer.status = 500;
        ThrowFailure(target.operation, target.path, result);
    }
}

void CopyInParts(const std::shared_ptr<CS3Connection>& connection, const SPlace& target, std::uint64_t size,
                 const std::string& sourceHeader, const SMultipartSizes& sizes,
                 const CMultipartUpload::headers_t& headers) {
    CMultipartUpload upload(connection, target, headers);
    const std::uint64_t partSize = std::min(std::max(copiedPart, sizes.PartSizeFor(size)), sizes.largestCopy);
    for (std::uint64_t offset = 0; offset < size; offset += partSize) {
        upload.AddCopiedPart(sourceHeader, offset, std::min(partSize, size - offset));
    }
    upload.Complete();
}

}  // namespace

void CopyObject(const std::shared_ptr<CS3Connection>& connection, const SPlace& source, const SPlace& target,
                const SMultipartSizes& sizes, const CMultipartUpload::headers_t& headers) {
    const std::uint64_t size = HeadExc(*connection, source).size;
    if (source.key == target.key) {
        return;
    }
    const std::string sourceHeader = UriEncode("/" + connection->GetBucket().name + "/" + source.key, true);
    if (size <= sizes.largestCopy) {
        CopyAtOnce(*connection, source, target, sourceHeader, headers);
    } else {
        CopyInParts(connection, target, size, sourceHeader, sizes, headers);
    }
}

}  // namespace clients::s3
