#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "cloudclientlib/wrappers/InterceptingClient.h"

namespace cloudclientlib {

/// What a counting client has counted.
struct SCallCounts {
    /// By operation, whether it succeeded or not.
    std::array<std::uint64_t, operationKinds> calls{};
    /// Handed over for upload, whether the upload succeeded or not.
    std::uint64_t bytesUp = 0;
    /// Brought by downloads that succeeded.
    std::uint64_t bytesDown = 0;
    std::uint64_t tasksInFlight = 0;
    std::uint64_t mostTasksInFlight = 0;

    [[nodiscard]] std::uint64_t Of(EOperation operation) const { return calls[static_cast<std::size_t>(operation)]; }
    [[nodiscard]] std::uint64_t Of(const operation_set& operations) const;
    /// All calls.
    [[nodiscard]] std::uint64_t Total() const;
    /// One line: what was called, the bytes and the tasks; operations not called are left out.
    [[nodiscard]] std::string ToAStr() const;

    bool operator==(const SCallCounts&) const = default;
};

/// What was counted between two moments; the tasks are those of the later one.
[[nodiscard]] SCallCounts operator-(const SCallCounts& later, const SCallCounts& earlier);

/// A client that counts what is asked of the one inside.
///
/// A task is in flight from the call until a Wait for it has returned or the caller lets it go: what the caller keeps
/// in flight, not what the store happens to work on. Bytes of a download count when it is first waited for with
/// success; those of streams as they pass. Safe from any thread. Tasks and streams may outlive the client.
class CCountingClient : public CInterceptingClient {
public:
    explicit CCountingClient(std::shared_ptr<ICloudClient> inner);

    [[nodiscard]] SCallCounts GetCounts() const;
    /// Starts anew; tasks in flight stay counted as such.
    void ResetCounts();

    class CCounter;

private:
    CCountingClient(std::shared_ptr<ICloudClient> inner, std::shared_ptr<CCounter> counter);

    const std::shared_ptr<CCounter> counter_;
};

}  // namespace cloudclientlib
