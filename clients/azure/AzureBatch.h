#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// The messages of the Blob protocol that carry several requests, or their answers ("multipart/mixed"). What is read is
/// hostile: failures are exc::CRuntimeExc. Pure functions, safe from any thread.
namespace clients::azure {

/// What one message may carry, by the protocol.
constexpr std::size_t mostRequestsOfBatch = 256;

/// What a part of the answer says of its request.
struct SBatchAnswer {
    /// The request's place in the batch; `noRequest` where the part speaks of the batch as a whole.
    static constexpr std::size_t noRequest = ~std::size_t{0};
    std::size_t request = noRequest;
    long status = 0;
    /// Empty for a success.
    std::string code;
    std::string message;
    std::string requestId;
};

/// Carries the heads of requests, each ended by a line end and none of them with a body, between lines of `boundary`.
[[nodiscard]] std::string WriteBatch(const std::vector<std::string>& heads, std::string_view boundary);

/// `contentType` is the answer's header of that name, which tells the boundary.
[[nodiscard]] std::vector<SBatchAnswer> ReadBatchAnswer(std::string_view contentType, std::string_view text);

}  // namespace clients::azure
