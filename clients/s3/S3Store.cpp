#include "clients/s3/S3Store.h"

#include "clients/s3/S3Documents.h"
#include "clients/s3/S3Failure.h"

namespace clients {

namespace {

constexpr const char* operation = "OpenBucket";

bool IsMissing(const http::SHttpResult& result) {
    return !result.failure && s3::ReadError(result.answer.body).value_or(s3::SServiceError{}).code == "NoSuchBucket";
}

/// Somebody may have made it in the meantime.
bool IsThereAlready(const http::SHttpResult& result) {
    constexpr long conflict = 409;
    return !result.failure && result.answer.status == conflict &&
           s3::ReadError(result.answer.body).value_or(s3::SServiceError{}).code == "BucketAlreadyOwnedByYou";
}

void MakeBucket(s3::CS3Connection& connection) {
    const s3::SBucket& bucket = connection.GetBucket();
    s3::SRequest request;
    request.method = "PUT";
    const std::string text = s3::WriteBucket(bucket.region);
    if (!text.empty()) {
        request.body = std::make_shared<cnt::array_t<char>>(text.begin(), text.end());
    }
    const auto made = connection.Run(request);
    if (!IsThereAlready(made)) {
        s3::CheckSuccess(operation, bucket.name, made);
    }
}

}  // namespace

std::shared_ptr<CS3Client> OpenS3Bucket(SS3ClientOptions options, std::shared_ptr<s3::ICredentials> credentials,
                                        bool make) {
    {
        s3::CS3Connection connection(options.bucket, credentials, options.http, options.clock);
        s3::SRequest request;
        request.query = {{"list-type", "2"}, {"max-keys", "1"}};
        const auto found = connection.Run(request);
        if (make && IsMissing(found)) {
            MakeBucket(connection);
        } else {
            s3::CheckSuccess(operation, options.bucket.name, found);
        }
    }
    return std::make_shared<CS3Client>(std::move(options), std::move(credentials));
}

}  // namespace clients
