#include "clients/azure/AzureBlocks.h"

#include <algorithm>

#include "clients/azure/AzureFailure.h"
#include "common/guid.h"
#include "common/util.h"

namespace clients::azure {

namespace {

/// How many blocks of one upload are on their way at once.
constexpr std::size_t window = 4;
constexpr std::uint64_t mostBlocks = 50000;

/// Of one length, as the service asks for.
std::string BlockId(const std::string& uploadId, std::size_t number) {
    const std::string digits = std::to_string(number);
    return util::toBase64(uploadId + "-" + std::string(5 - std::min<std::size_t>(5, digits.size()), '0') + digits);
}

}  // namespace

std::uint64_t SBlockSizes::BlockSizeFor(std::uint64_t objectSize) const {
    return std::max(block, (objectSize + mostBlocks - 1) / mostBlocks);
}

CBlockUpload::CBlockUpload(std::shared_ptr<CAzureConnection> connection, SPlace place, headers_t headers)
    : connection_(std::move(connection)),
      place_(std::move(place)),
      headers_(std::move(headers)),
      uploadId_(guid::guid_t::CreateNew().ToAStr()) {}

CBlockUpload::~CBlockUpload() {
    for (const auto& block : onTheirWay_) {
        block.wait();
    }
}

void CBlockUpload::AddBlock(http::buffer_ptr data) {
    // No more than there are connections for, whatever the number of uploads: each block holds its bytes.
    while (onTheirWay_.size() >= window || (!onTheirWay_.empty() && connection_->IsBusy())) {
        WaitForOne();
    }
    ids_.push_back(BlockId(uploadId_, ids_.size()));
    SRequest request;
    request.method = "PUT";
    request.blob = place_.name;
    request.query = {{"comp", "block"}, {"blockid", ids_.back()}};
    request.headers = {{"content-md5", WriteMd5(digest::Md5(*data))}};
    request.body = std::move(data);
    auto promise = std::make_shared<std::promise<http::SHttpResult>>();
    auto result = promise->get_future();
    connection_->Start(request, [promise](http::SHttpResult answer) { promise->set_value(std::move(answer)); });
    onTheirWay_.push_back(std::move(result));
}

void CBlockUpload::WaitForOne() {
    const http::SHttpResult result = onTheirWay_.front().get();
    onTheirWay_.pop_front();
    CheckSuccess(place_.operation, place_.path, result);
}

void CBlockUpload::Complete(const digest::md5_digest_t& md5) {
    while (!onTheirWay_.empty()) {
        WaitForOne();
    }
    const std::string text = WriteBlockList(ids_);
    SRequest request;
    request.method = "PUT";
    request.blob = place_.name;
    request.query = {{"comp", "blocklist"}};
    request.headers = headers_;
    request.headers.emplace_back("content-type", "application/xml");
    request.headers.emplace_back("content-md5", WriteMd5(digest::Md5(text)));
    request.headers.emplace_back("x-ms-blob-content-md5", WriteMd5(md5));
    request.body = std::make_shared<cnt::array_t<char>>(text.begin(), text.end());
    CheckSuccess(place_.operation, place_.path, connection_->Run(request));
}

}  // namespace clients::azure
