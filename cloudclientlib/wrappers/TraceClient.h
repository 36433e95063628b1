#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "cloudclientlib/wrappers/InterceptingClient.h"
#include "cloudclientlib/wrappers/Timer.h"

namespace cloudclientlib {

/// What a tracing client has seen done.
struct STraceTotals {
    struct SKind {
        std::uint64_t calls = 0;
        std::uint64_t failures = 0;
        /// Of the calls that succeeded.
        std::uint64_t bytesUp = 0;
        std::uint64_t bytesDown = 0;
        /// The sum over the calls, also of those that ran at the same time.
        std::chrono::nanoseconds time{0};

        bool operator==(const SKind&) const = default;
    };
    std::array<SKind, operationKinds> kinds{};

    [[nodiscard]] const SKind& Of(EOperation operation) const { return kinds[static_cast<std::size_t>(operation)]; }
    /// All kinds together.
    [[nodiscard]] SKind Sum() const;
    /// A line for each kind that was called ("UploadFile: calls 3, failed 1, bytes up 2048, time 12.3 ms"; without what
    /// is 0), with a line end between them.
    [[nodiscard]] std::string ToAStr() const;

    bool operator==(const STraceTotals&) const = default;
};

/// A client that writes down what the one inside is asked and how long it takes.
///
/// Each call is one line at dbg level when it is done, with its duration and, for transfers, its bytes, or with the
/// text of its failure; the calls of streams too. The totals are kept at any level, and logged at dbg level when the
/// client ends, a line for each kind of call. Paths stand in the lines, content
/// does not.
///
/// Asynchronous operations are begun in the caller's thread, and may throw from there; a thread of this client, of as
/// many as the limit of the client inside, waits for each and takes the time. It costs that change of threads for each
/// task, and two looks at the clock; no text is made while dbg is off. Safe from any thread. The destructor waits for
/// what is in flight. Tasks and streams may outlive the client.
class CTraceClient : public CInterceptingClient {
public:
    /// An empty timer is the system's; only its clock is used.
    explicit CTraceClient(std::shared_ptr<ICloudClient> inner, std::shared_ptr<ITimer> timer = nullptr);
    ~CTraceClient() override;

    /// Of the calls that are done.
    [[nodiscard]] STraceTotals GetTotals() const;

    class CTracer;

private:
    CTraceClient(std::shared_ptr<ICloudClient> inner, std::shared_ptr<CTracer> tracer);

    const std::shared_ptr<CTracer> tracer_;
};

}  // namespace cloudclientlib
