#include "clients/azure/AzureObjects.h"

#include <algorithm>

#include "clients/azure/AzureBatch.h"
#include "clients/azure/AzureFailure.h"
#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/ObjectPath.h"
#include "common/exc.h"
#include "common/guid.h"
#include "common/util.h"

namespace clients::azure {

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

const char* WhyRefused(const std::string& name) {
    if (std::any_of(name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; })) {
        return "the store cannot hold control characters in names";
    }
    if (name.find('\\') != std::string::npos) {
        return "the store takes a backslash in a name for a slash";
    }
    for (std::size_t i = 0; i < name.size();) {
        const std::size_t length = util::Utf8SequenceLength(std::string_view(name).substr(i));
        if (length == 0) {
            return "the store holds names in UTF-8 only";
        }
        i += length;
    }
    return !name.empty() && name.find_first_not_of(' ') == std::string::npos ? "the store cannot list names of blanks"
                                                                             : nullptr;
}

/// A copy that is not done, or failed, leaves an object without its bytes.
void CheckCopied(const SPlace& place, const std::string& status) {
    if (status == "pending") {
        throw CCloudExc({EFailure::transient, true, place.operation, place.path, "the object is still being copied"});
    }
    if (!status.empty() && status != "success") {
        throw CCloudExc({EFailure::corrupt, false, place.operation, place.path,
                         "the copy that made the object came to nothing (" + status + ")"});
    }
}

/// Of a whole object; `came` is the digest of its bytes.
void CheckBytes(const SPlace& place, const http::SHttpAnswer& answer, const digest::md5_digest_t& came) {
    CheckCopied(place, answer.Header("x-ms-copy-status"));
    const auto md5 = ReadMd5(answer.Header("content-md5"));
    if (md5 && came != *md5) {
        ThrowWrongBytes(place);
    }
}

void CheckObject(const SPlace& place) {
    if (place.isRoot) {
        throw cloudclientlib::CObjectNotFoundExc(place.operation, place.path);
    }
}

}  // namespace

SPlace::SPlace(std::string operationName, const std::string& givenPath, const std::string& prefix)
    : operation(std::move(operationName)),
      path(givenPath),
      name(cloudclientlib::NormalizeObjectPath(operation, givenPath)),
      isRoot(name.empty()) {
    if (!prefix.empty()) {
        name = name.empty() ? prefix : prefix + "/" + name;
    }
    if (const char* const why = WhyRefused(name)) {
        throw CCloudExc({EFailure::other, false, operation, path, why});
    }
}

void ThrowWrongBytes(const SPlace& place) {
    throw CCloudExc({EFailure::corrupt, true, place.operation, place.path,
                     "the bytes are not those whose MD5 the service recorded"});
}

std::optional<SObjectState> Head(CAzureConnection& connection, const SPlace& place) {
    if (place.isRoot) {
        return std::nullopt;
    }
    SRequest request;
    request.method = "HEAD";
    request.blob = place.name;
    const auto result = connection.Run(request);
    if (IsNotFound(result)) {
        return std::nullopt;
    }
    CheckSuccess(place.operation, place.path, result);
    return Reading(place, [&] {
        const http::SHttpAnswer& answer = result.answer;
        SObjectState state;
        state.size = util::str_to_uint64(answer.Header("content-length"));
        state.etag = answer.Header("etag");
        state.tier = answer.Header("x-ms-access-tier");
        state.archiveStatus = answer.Header("x-ms-archive-status");
        state.copyStatus = answer.Header("x-ms-copy-status");
        state.copyId = answer.Header("x-ms-copy-id");
        state.md5 = ReadMd5(answer.Header("content-md5"));
        return state;
    });
}

SObjectState HeadExc(CAzureConnection& connection, const SPlace& place) {
    auto state = Head(connection, place);
    if (!state) {
        throw cloudclientlib::CObjectNotFoundExc(place.operation, place.path);
    }
    CheckCopied(place, state->copyStatus);
    return *std::move(state);
}

void ReadWhole(CAzureConnection& connection, const SPlace& place, const http::buffer_ptr& buffer) {
    CheckObject(place);
    SRequest request;
    request.blob = place.name;
    request.target = buffer;
    const auto result = connection.Run(request);
    CheckSuccess(place.operation, place.path, result);
    CheckBytes(place, result.answer, digest::Md5(*buffer));
}

void ReadRange(CAzureConnection& connection, const SPlace& place, std::uint64_t offset, std::uint64_t size,
               const http::buffer_ptr& buffer, const std::string& etag) {
    CheckObject(place);
    // No object is so large, and services fail, or take for nonsense, positions that their numbers do not hold.
    constexpr std::uint64_t largest = std::uint64_t{1} << 50U;
    if (size == 0 || offset >= largest) {
        static_cast<void>(HeadExc(connection, place));
        buffer->clear();
        return;
    }
    SRequest request;
    request.blob = place.name;
    request.target = buffer;
    request.range = {offset, std::min(size, largest)};
    const std::uint64_t last = offset + request.range->size - 1;
    request.headers.emplace_back("range", "bytes=" + std::to_string(offset) + "-" + std::to_string(last));
    if (!etag.empty()) {
        request.headers.emplace_back("if-match", etag);
    }
    const auto result = connection.Run(request);
    if (!result.failure && result.answer.status == rangeNotSatisfiable) {
        CheckCopied(place, result.answer.Header("x-ms-copy-status"));
        buffer->clear();
        return;
    }
    CheckSuccess(place.operation, place.path, result);
    if (result.answer.wholeMd5) {  // the service sent the whole, as it may
        CheckBytes(place, result.answer, *result.answer.wholeMd5);
    } else {
        CheckCopied(place, result.answer.Header("x-ms-copy-status"));
    }
}

namespace {

using query_t = std::vector<std::pair<std::string, std::string>>;

SListing ListPage(CAzureConnection& connection, const SPlace& place, const query_t& asked, const std::string& marker) {
    SRequest request;
    request.query = {{"restype", "container"}, {"comp", "list"}};
    request.query.insert(request.query.end(), asked.begin(), asked.end());
    request.query.emplace_back("marker", marker);
    std::erase_if(request.query, [](const auto& parameter) { return parameter.second.empty(); });
    const auto result = connection.Run(request);
    CheckSuccess(place.operation, place.path, result);
    return Reading(place, [&] { return ReadListing(result.answer.body); });
}

void ListPages(CAzureConnection& connection, const SPlace& place, const query_t& asked,
               const std::function<bool(const SListing&)>& take) {
    std::string marker;
    bool goesOn = true;
    while (goesOn) {
        const SListing page = ListPage(connection, place, asked, marker);
        goesOn = take(page) && !page.nextMarker.empty();
        if (goesOn && page.nextMarker == marker) {
            throw CCloudExc(
                {EFailure::corrupt, true, place.operation, place.path, "the service's listing does not get ahead"});
        }
        marker = page.nextMarker;
    }
}

}  // namespace

void ListAll(CAzureConnection& connection, const SPlace& place, const std::string& prefix, const std::string& delimiter,
             const std::function<void(const SListing&)>& take) {
    ListPages(connection, place, {{"prefix", prefix}, {"delimiter", delimiter}}, [&](const SListing& page) {
        take(page);
        return true;
    });
}

bool HasPrefix(CAzureConnection& connection, const SPlace& place, const std::string& prefix) {
    bool found = false;
    ListPages(connection, place, {{"prefix", prefix}, {"maxresults", "1"}}, [&](const SListing& page) {
        found = !page.blobs.empty();  // a page may be empty and yet not the last
        return !found;
    });
    return found;
}

void DeleteOne(CAzureConnection& connection, const SPlace& place, const std::string& etag) {
    if (place.isRoot) {
        return;
    }
    SRequest request;
    request.method = "DELETE";
    request.blob = place.name;
    if (!etag.empty()) {
        request.headers.emplace_back("if-match", etag);
    }
    const auto result = connection.Run(request);
    if (!IsNotFound(result)) {
        CheckSuccess(place.operation, place.path, result);
    }
}

namespace {

/// Every request of a batch is answered, once; what failed is told by the first.
void CheckBatch(const SPlace& place, const std::vector<std::string>& names, const std::vector<SBatchAnswer>& answers) {
    std::vector<bool> isAnswered(names.size());
    const SBatchAnswer* failed = nullptr;
    std::size_t failures = 0;
    for (const SBatchAnswer& answer : answers) {
        if (answer.request == SBatchAnswer::noRequest) {
            ThrowBatchFailure(place.operation, place.path, answer, "the service refused to delete a batch of objects");
        }
        if (answer.request >= names.size() || isAnswered[answer.request]) {
            throw exc::CRuntimeExc("The answer to a batch names request %1", answer.request);
        }
        isAnswered[answer.request] = true;
        if (!IsGone(answer)) {
            failed = failed == nullptr ? &answer : failed;
            ++failures;
        }
    }
    if (failed != nullptr) {
        ThrowBatchFailure(place.operation, place.path, *failed,
                          exc::Format("%1 objects were not deleted; '%2'", failures, names[failed->request]));
    }
    if (answers.size() != names.size()) {
        throw exc::CRuntimeExc("The answer to a batch of %1 requests answers %2", names.size(), answers.size());
    }
}

void DeleteBatch(CAzureConnection& connection, const SPlace& place, const std::vector<std::string>& names) {
    const std::string boundary = "batch_" + guid::guid_t::CreateNew().ToAStr();
    std::vector<std::string> heads;
    heads.reserve(names.size());
    for (const std::string& name : names) {
        heads.push_back(connection.BatchHead("DELETE", name));
    }
    const std::string text = WriteBatch(heads, boundary);
    SRequest request;
    request.method = "POST";
    request.query = {{"restype", "container"}, {"comp", "batch"}};
    request.headers = {{"content-type", "multipart/mixed; boundary=" + boundary}};
    request.body = std::make_shared<cnt::array_t<char>>(text.begin(), text.end());
    const auto result = connection.Run(request);
    CheckSuccess(place.operation, place.path, result);
    Reading(place, [&] {
        CheckBatch(place, names, ReadBatchAnswer(result.answer.Header("content-type"), result.answer.body));
    });
}

}  // namespace

void DeleteNames(CAzureConnection& connection, const SPlace& place, const std::vector<std::string>& names) {
    for (std::size_t i = 0; i < names.size(); i += mostRequestsOfBatch) {
        const auto begin = names.begin() + static_cast<std::ptrdiff_t>(i);
        const std::size_t count = std::min(mostRequestsOfBatch, names.size() - i);
        DeleteBatch(connection, place, {begin, begin + static_cast<std::ptrdiff_t>(count)});
    }
}

void PutObject(CAzureConnection& connection, const SPlace& place, const http::buffer_ptr& data,
               const headers_t& headers) {
    SRequest request;
    request.method = "PUT";
    request.blob = place.name;
    request.headers = headers;
    request.headers.emplace_back("x-ms-blob-type", "BlockBlob");
    request.headers.emplace_back("content-md5", WriteMd5(digest::Md5(*data)));
    request.body = data;
    CheckSuccess(place.operation, place.path, connection.Run(request));
}

}  // namespace clients::azure
