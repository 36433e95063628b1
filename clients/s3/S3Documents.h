#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/digest.h"

/// The XML documents of the S3 protocol, read and written. What is read is hostile: failures are exc::CRuntimeExc and
/// name what is missing or malformed. Pure functions, safe from any thread.
namespace clients::s3 {

struct SListedObject {
    std::string key;
    std::uint64_t size = 0;
    std::chrono::system_clock::time_point modified;
    /// Without its quotes.
    std::string etag;
    /// Empty for the standard one.
    std::string storageClass;
};

/// One page of a listing.
struct SListing {
    std::vector<SListedObject> objects;
    /// Keys up to and with the delimiter, each once.
    std::vector<std::string> prefixes;
    /// Empty on the last page.
    std::string nextToken;
};

/// Keys are asked for in URL encoding, since XML cannot hold every byte.
[[nodiscard]] SListing ReadListing(std::string_view text);

/// What a service says of a failure.
struct SServiceError {
    std::string code;
    std::string message;
    std::string requestId;
    /// The region that the bucket lies in, when the service tells.
    std::string region;
    /// The object, where the error is one of a batch.
    std::string key;
};

/// Nothing when the text is no error document; a failed request's body may be anything.
[[nodiscard]] std::optional<SServiceError> ReadError(std::string_view text);

[[nodiscard]] std::string WriteBatchDeletion(const std::vector<std::string>& keys);
/// The objects that could not be deleted.
[[nodiscard]] std::vector<SServiceError> ReadBatchDeletion(std::string_view text);

[[nodiscard]] std::string ReadUploadId(std::string_view text);
/// The entity tags of the parts, from part 1 on.
[[nodiscard]] std::string WriteCompletion(const std::vector<std::string>& etags);
/// The tag of a part that was copied.
[[nodiscard]] std::string ReadCopiedPart(std::string_view text);

/// What a new bucket is made with; empty for the region that is meant when none is named.
[[nodiscard]] std::string WriteBucket(const std::string& region);

[[nodiscard]] std::string WriteRestoration(unsigned days, std::string_view tier);

/// An entity tag without its quotes.
[[nodiscard]] std::string Unquote(std::string text);
/// Of an object that was uploaded with one request, the tag is its MD5; of others it has a "-".
[[nodiscard]] std::optional<digest::md5_digest_t> Md5OfTag(const std::string& etag);

/// "2009-10-12T17:50:30.000Z"; the clock's epoch for anything else.
[[nodiscard]] std::chrono::system_clock::time_point ParseTime(const std::string& text);
/// The bytes of a URL-encoded text; "+" is a blank, as some services write it. Throws for a broken "%".
[[nodiscard]] std::string UrlDecode(std::string_view text);

}  // namespace clients::s3
