#include "clients/s3/S3Objects.h"

#include <algorithm>

#include "clients/s3/S3Failure.h"
#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/ObjectPath.h"
#include "common/digest.h"
#include "common/exc.h"
#include "common/util.h"

namespace clients::s3 {

namespace {

using cloudclientlib::CCloudExc;
using cloudclientlib::EFailure;

constexpr long rangeNotSatisfiable = 416;

/// An answer that does not say what it must is a failure of the service, which may pass.
template <class F>
auto Reading(const SPlace& place, const F& read) {
    try {
        return read();
    } catch (const CCloudExc&) {
        throw;
    } catch (const std::exception& failure) {
        throw CCloudExc({EFailure::corrupt, true, place.operation, place.path, "the service's answer is malformed"},
                        failure);
    }
}

/// XML can carry no other control characters.
bool FitsXml(const std::string& key) {
    return std::none_of(key.begin(), key.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; });
}

void DeleteBatch(CS3Connection& connection, const SPlace& place, const std::vector<std::string>& keys) {
    const std::string text = WriteBatchDeletion(keys);
    SRequest request;
    request.method = "POST";
    request.query = {{"delete", ""}};
    request.body = std::make_shared<cnt::array_t<char>>(text.begin(), text.end());
    request.headers = BodyHeaders(request.body);
    request.headers.emplace_back("content-type", "application/xml");
    const auto result = connection.Run(request);
    CheckSuccess(place.operation, place.path, result);
    const auto errors = Reading(place, [&] { return ReadBatchDeletion(result.answer.body); });
    if (!errors.empty()) {
        const SServiceError& first = errors.front();
        throw CCloudExc({first.code == "AccessDenied" ? EFailure::accessDenied : EFailure::transient,
                         first.code != "AccessDenied", place.operation, place.path,
                         exc::Format("%1 objects were not deleted; '%2': %3 %4", errors.size(), first.key, first.code,
                                     first.message)});
    }
}

}  // namespace

SPlace::SPlace(std::string operationName, const std::string& givenPath, const std::string& prefix)
    : operation(std::move(operationName)),
      path(givenPath),
      key(cloudclientlib::NormalizeObjectPath(operation, givenPath)) {
    if (!prefix.empty()) {
        key = key.empty() ? prefix : prefix + "/" + key;
    }
}

std::optional<SObjectState> Head(CS3Connection& connection, const SPlace& place) {
    SRequest request;
    request.method = "HEAD";
    request.key = place.key;
    const auto result = connection.Run(request);
    constexpr long notFound = 404;
    if (!result.failure && result.answer.status == notFound) {
        return std::nullopt;
    }
    CheckSuccess(place.operation, place.path, result);
    return Reading(place, [&] {
        SObjectState state;
        state.size = util::str_to_uint64(result.answer.Header("content-length"));
        state.etag = result.answer.Header("etag");
        state.storageClass = result.answer.Header("x-amz-storage-class");
        state.restore = result.answer.Header("x-amz-restore");
        return state;
    });
}

SObjectState HeadExc(CS3Connection& connection, const SPlace& place) {
    auto state = place.key.empty() ? std::nullopt : Head(connection, place);
    if (!state) {
        throw cloudclientlib::CObjectNotFoundExc(place.operation, place.path);
    }
    return *std::move(state);
}

void ReadWhole(CS3Connection& connection, const SPlace& place, const http::buffer_ptr& buffer) {
    SRequest request;
    request.key = place.key;
    request.target = buffer;
    const auto result = connection.Run(request);
    CheckSuccess(place.operation, place.path, result);
    // Of objects that the service encrypts with keys of its own, the tag is something else.
    const bool isPlain = result.answer.Header("x-amz-server-side-encryption").find("kms") == std::string::npos &&
                         result.answer.Header("x-amz-server-side-encryption-customer-algorithm").empty();
    const auto recorded = isPlain ? Md5OfTag(Unquote(result.answer.Header("etag"))) : std::nullopt;
    if (recorded && *recorded != digest::Md5(*buffer)) {
        throw CCloudExc({EFailure::corrupt, true, place.operation, place.path,
                         "the bytes that came do not have the MD5 that the service recorded"});
    }
}

void ReadRange(CS3Connection& connection, const SPlace& place, std::uint64_t offset, std::uint64_t size,
               const http::buffer_ptr& buffer, const std::string& etag) {
    // No object is so large, and services fail, or take for nonsense, positions that their numbers do not hold.
    constexpr std::uint64_t largest = std::uint64_t{1} << 50U;
    if (size == 0 || offset >= largest) {
        static_cast<void>(HeadExc(connection, place));
        buffer->clear();
        return;
    }
    SRequest request;
    request.key = place.key;
    request.target = buffer;
    request.range = {offset, std::min(size, largest)};
    const std::uint64_t last = offset + request.range->size - 1;
    request.headers.emplace_back("range", "bytes=" + std::to_string(offset) + "-" + std::to_string(last));
    if (!etag.empty()) {
        request.headers.emplace_back("if-match", etag);
    }
    const auto result = connection.Run(request);
    if (!result.failure && result.answer.status == rangeNotSatisfiable) {
        buffer->clear();
        return;
    }
    CheckSuccess(place.operation, place.path, result);
}

namespace {

SListing ListPage(CS3Connection& connection, const SPlace& place, const std::string& prefix,
                  const std::vector<std::pair<std::string, std::string>>& more) {
    SRequest request;
    request.query = {{"list-type", "2"}, {"encoding-type", "url"}, {"prefix", prefix}};
    request.query.insert(request.query.end(), more.begin(), more.end());
    const auto result = connection.Run(request);
    CheckSuccess(place.operation, place.path, result);
    return Reading(place, [&] { return ReadListing(result.answer.body); });
}

}  // namespace

bool HasPrefix(CS3Connection& connection, const SPlace& place, const std::string& prefix) {
    return !ListPage(connection, place, prefix, {{"max-keys", "1"}}).objects.empty();
}

void ListAll(CS3Connection& connection, const SPlace& place, const std::string& prefix, const std::string& delimiter,
             const std::function<void(const SListing&)>& take) {
    std::string token;
    do {
        std::vector<std::pair<std::string, std::string>> more;
        if (!delimiter.empty()) {
            more.emplace_back("delimiter", delimiter);
        }
        if (!token.empty()) {
            more.emplace_back("continuation-token", token);
        }
        const SListing listing = ListPage(connection, place, prefix, more);
        take(listing);
        if (!token.empty() && listing.nextToken == token) {
            throw CCloudExc(
                {EFailure::corrupt, true, place.operation, place.path, "the service's listing does not get ahead"});
        }
        token = listing.nextToken;
    } while (!token.empty());
}

void DeleteOne(CS3Connection& connection, const SPlace& place, const std::string& key) {
    SRequest request;
    request.method = "DELETE";
    request.key = key;
    const auto result = connection.Run(request);
    constexpr long notFound = 404;
    const bool isGone = !result.failure && result.answer.status == notFound;
    if (isGone && ReadError(result.answer.body).value_or(SServiceError{}).code != "NoSuchBucket") {
        return;
    }
    CheckSuccess(place.operation, place.path, result);
}

void DeleteKeys(CS3Connection& connection, const SPlace& place, const std::vector<std::string>& keys) {
    constexpr std::size_t batchSize = 1000;
    std::vector<std::string> batch;
    const auto flush = [&] {
        if (!batch.empty()) {
            DeleteBatch(connection, place, batch);
            batch.clear();
        }
    };
    for (const std::string& key : keys) {
        if (!FitsXml(key)) {
            DeleteOne(connection, place, key);
            continue;
        }
        batch.push_back(key);
        if (batch.size() == batchSize) {
            flush();
        }
    }
    flush();
}

std::vector<std::pair<std::string, std::string>> BodyHeaders(const http::buffer_ptr& body) {
    const auto md5 = digest::Md5(*body);
    return {{"content-md5", util::toBase64({reinterpret_cast<const char*>(md5.bytes.data()), md5.bytes.size()})}};
}

}  // namespace clients::s3
