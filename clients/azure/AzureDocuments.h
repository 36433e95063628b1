#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/digest.h"

/// The XML documents of the Blob protocol, read and written. What is read is hostile: failures are exc::CRuntimeExc and
/// name what is missing or malformed. Pure functions, safe from any thread.
namespace clients::azure {

struct SListedBlob {
    std::string name;
    std::uint64_t size = 0;
    std::chrono::system_clock::time_point modified;
    /// What was recorded when it was written.
    std::optional<digest::md5_digest_t> md5;
    /// "Hot", "Cool", "Cold", "Archive"; empty where the service does not say.
    std::string tier;
};

/// One page of a listing. It may be empty and yet not the last.
struct SListing {
    std::vector<SListedBlob> blobs;
    /// Names up to and with the delimiter, each once.
    std::vector<std::string> prefixes;
    /// Empty on the last page.
    std::string nextMarker;
};

[[nodiscard]] SListing ReadListing(std::string_view text);

/// What a service says of a failure.
struct SServiceError {
    std::string code;
    /// Its first line; the others repeat the request's id and the time.
    std::string message;
};

/// Nothing when the text is no error document; a failed request's body may be anything.
[[nodiscard]] std::optional<SServiceError> ReadError(std::string_view text);

/// The order of an object's blocks.
[[nodiscard]] std::string WriteBlockList(const std::vector<std::string>& ids);

/// The digest of a header "content-md5"; nothing for anything else.
[[nodiscard]] std::optional<digest::md5_digest_t> ReadMd5(std::string_view base64);
[[nodiscard]] std::string WriteMd5(const digest::md5_digest_t& md5);

}  // namespace clients::azure
