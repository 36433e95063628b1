#include "clients/s3/S3Multipart.h"

#include <algorithm>
#include <future>

#include "clients/s3/S3Failure.h"
#include "cloudclientlib/CloudExc.h"
#include "common/exc.h"

namespace clients::s3 {

namespace {

using cloudclientlib::CCloudExc;
using cloudclientlib::EFailure;

/// How many parts of one upload are on their way at once.
constexpr std::size_t window = 4;
constexpr std::uint64_t mostParts = 10000;

CCloudExc Malformed(const SPlace& place, const char* what) {
    return CCloudExc({EFailure::corrupt, true, place.operation, place.path, what});
}

}  // namespace

std::uint64_t SMultipartSizes::PartSizeFor(std::uint64_t objectSize) const {
    return std::max(part, (objectSize + mostParts - 1) / mostParts);
}

struct CMultipartUpload::SPart {
    std::future<http::SHttpResult> result;
    bool copied = false;
};

CMultipartUpload::CMultipartUpload(std::shared_ptr<CS3Connection> connection, SPlace place, const headers_t& headers)
    : connection_(std::move(connection)), place_(std::move(place)) {
    SRequest request;
    request.method = "POST";
    request.key = place_.key;
    request.query = {{"uploads", ""}};
    request.headers = headers;
    const auto result = connection_->Run(request);
    CheckSuccess(place_.operation, place_.path, result);
    try {
        uploadId_ = ReadUploadId(result.answer.body);
    } catch (const exc::CExc&) {
        throw Malformed(place_, "the service began an upload without saying its id");
    }
}

CMultipartUpload::~CMultipartUpload() {
    if (isOpen_) {
        Abort();
    }
}

void CMultipartUpload::AddPart(http::buffer_ptr data) {
    SRequest request;
    request.headers = BodyHeaders(data);
    request.body = std::move(data);
    Start(std::move(request), false);
}

void CMultipartUpload::AddCopiedPart(const std::string& sourceHeader, std::uint64_t offset, std::uint64_t size) {
    SRequest request;
    request.headers = {
        {"x-amz-copy-source", sourceHeader},
        {"x-amz-copy-source-range", "bytes=" + std::to_string(offset) + "-" + std::to_string(offset + size - 1)}};
    Start(std::move(request), true);
}

void CMultipartUpload::Start(SRequest request, bool copied) {
    // No more than there are connections for, whatever the number of uploads: each part holds its bytes.
    while (onTheirWay_.size() >= window || (!onTheirWay_.empty() && connection_->IsBusy())) {
        WaitForOne();
    }
    request.method = "PUT";
    request.key = place_.key;
    request.query = {{"partNumber", std::to_string(++started_)}, {"uploadId", uploadId_}};
    auto promise = std::make_shared<std::promise<http::SHttpResult>>();
    auto part = std::make_unique<SPart>();
    part->copied = copied;
    part->result = promise->get_future();
    onTheirWay_.push_back(std::move(part));
    try {
        connection_->Start(request, [promise](http::SHttpResult result) { promise->set_value(std::move(result)); });
    } catch (...) {
        onTheirWay_.pop_back();
        throw;
    }
}

void CMultipartUpload::WaitForOne() {
    const auto part = std::move(onTheirWay_.front());
    onTheirWay_.erase(onTheirWay_.begin());
    const http::SHttpResult result = part->result.get();
    CheckSuccess(place_.operation, place_.path, result);
    std::string etag = result.answer.Header("etag");
    if (part->copied) {
        try {
            etag = ReadCopiedPart(result.answer.body);
        } catch (const exc::CExc&) {  // a failure in the body of a success
            http::SHttpResult failed = result;
            failed.answer.status = 500;
            ThrowFailure(place_.operation, place_.path, failed);
        }
    }
    if (etag.empty()) {
        throw Malformed(place_, "the service took a part without a tag for it");
    }
    etags_.push_back(std::move(etag));
}

void CMultipartUpload::Complete() {
    while (!onTheirWay_.empty()) {
        WaitForOne();
    }
    const std::string text = WriteCompletion(etags_);
    SRequest request;
    request.method = "POST";
    request.key = place_.key;
    request.query = {{"uploadId", uploadId_}};
    request.headers = {{"content-type", "application/xml"}};
    request.body = std::make_shared<cnt::array_t<char>>(text.begin(), text.end());
    http::SHttpResult result = connection_->Run(request);
    CheckSuccess(place_.operation, place_.path, result);
    if (ReadError(result.answer.body)) {  // the service answers before it is done, and may fail after that
        result.answer.status = 500;
        ThrowFailure(place_.operation, place_.path, result);
    }
    isOpen_ = false;
}

void CMultipartUpload::Abort() noexcept {
    for (const auto& part : onTheirWay_) {
        part->result.wait();  // a part that arrives behind the abort would stay
    }
    try {
        SRequest request;
        request.method = "DELETE";
        request.key = place_.key;
        request.query = {{"uploadId", uploadId_}};
        static_cast<void>(connection_->Run(request));
    } catch (...) {  // the parts stay until the bucket's own rule for unfinished uploads sweeps them
    }
}

}  // namespace clients::s3
