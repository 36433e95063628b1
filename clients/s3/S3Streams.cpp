#include "clients/s3/S3Streams.h"

#include <algorithm>

#include "clients/s3/S3Failure.h"
#include "cloudclientlib/CloudExc.h"

namespace clients::s3 {

namespace {

/// Of one version, to the last byte asked for.
http::CReadAhead Reader(std::shared_ptr<CS3Connection> connection, std::shared_ptr<task::CWorkerPool> workers,
                        SPlace place) {
    const SObjectState state = HeadExc(*connection, place);
    return {std::move(workers), state.size,
            [connection = std::move(connection), place = std::move(place), etag = state.etag](
                std::uint64_t offset, std::uint64_t size, const http::buffer_ptr& buffer) {
                ReadRange(*connection, place, offset, size, buffer, etag);
                if (buffer->size() != size) {
                    throw cloudclientlib::CCloudExc({cloudclientlib::EFailure::corrupt, true, place.operation,
                                                     place.path, "the service sent fewer bytes than the object has"});
                }
            }};
}

}  // namespace

CS3Download::CS3Download(std::shared_ptr<CS3Connection> connection, std::shared_ptr<task::CWorkerPool> workers,
                         SPlace place)
    : reader_(Reader(std::move(connection), std::move(workers), std::move(place))) {}

CS3Upload::CS3Upload(std::shared_ptr<CS3Connection> connection, SPlace place, std::uint64_t size,
                     const SMultipartSizes& sizes, headers_t headers)
    : connection_(std::move(connection)),
      place_(std::move(place)),
      size_(size),
      partSize_(size > sizes.threshold ? sizes.PartSizeFor(size) : sizes.threshold),
      headers_(std::move(headers)),
      part_(std::make_shared<cnt::array_t<char>>()) {}

void CS3Upload::Refuse(const char* reason) {
    isClosed_ = true;
    upload_.reset();  // aborts it
    throw cloudclientlib::CCloudExc({cloudclientlib::EFailure::other, false, place_.operation, place_.path, reason});
}

void CS3Upload::Write(std::span<const char> data) {
    if (isClosed_) {
        Refuse("the upload is over");
    }
    if (data.size() > size_ - taken_) {
        Refuse("more bytes than announced");
    }
    taken_ += data.size();
    while (!data.empty()) {
        const std::size_t count = std::min<std::uint64_t>(data.size(), partSize_ - part_->size());
        if (part_->empty()) {
            part_->reserve(std::min(partSize_, size_ - taken_ + data.size()));
        }
        part_->insert(part_->end(), data.begin(), data.begin() + static_cast<std::ptrdiff_t>(count));
        data = data.subspan(count);
        if (part_->size() == partSize_ && taken_ - data.size() < size_) {
            if (!upload_) {
                upload_ = std::make_unique<CMultipartUpload>(connection_, place_, headers_);
            }
            upload_->AddPart(std::move(part_));
            part_ = std::make_shared<cnt::array_t<char>>();
        }
    }
}

void CS3Upload::Finish() {
    if (isClosed_) {
        Refuse("the upload is over");
    }
    if (taken_ != size_) {
        Refuse("fewer bytes than announced");
    }
    isClosed_ = true;
    if (!upload_) {
        PutObject(*connection_, place_, part_, headers_);
        return;
    }
    upload_->AddPart(std::move(part_));
    upload_->Complete();
}

void PutObject(CS3Connection& connection, const SPlace& place, const http::buffer_ptr& data,
               const CMultipartUpload::headers_t& headers) {
    SRequest request;
    request.method = "PUT";
    request.key = place.key;
    request.headers = headers;
    const auto digests = BodyHeaders(data);
    request.headers.insert(request.headers.end(), digests.begin(), digests.end());
    request.body = data;
    CheckSuccess(place.operation, place.path, connection.Run(request));
}

}  // namespace clients::s3
