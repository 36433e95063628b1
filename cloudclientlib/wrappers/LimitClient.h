#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "cloudclientlib/wrappers/InterceptingClient.h"
#include "cloudclientlib/wrappers/Timer.h"

namespace cloudclientlib {

/// How much a client may do at once and in a second; 0 for no limit.
struct SLimits {
    std::size_t operationsInFlight = 0;
    std::uint64_t bytesPerSecondUp = 0;
    std::uint64_t bytesPerSecondDown = 0;
};

/// A client that keeps within limits what is asked of the one inside.
///
/// Operations in flight: each takes a place, in the order of the calls, and the next begins when a place becomes free.
/// Asynchronous ones queue meanwhile and run on this client's threads, so their failures come through the task, those
/// of invalid paths too; synchronous ones block their caller. A stream takes a place for each call of it, not for its
/// life: streams that are open and idle hold nobody up. The progress of a deletion must not call the client: it would
/// wait for the place that it keeps.
///
/// Bytes: each direction has its rate and at most one second's worth saved up. An upload and a stream's write wait for
/// their bytes beforehand. A ranged download waits for its size, at most a second's worth, and what it brought besides
/// is taken when it is done; other downloads and a stream's read, whose size nobody knows beforehand, wait until the
/// ones before them are paid for. A transfer larger than a second's worth makes the next ones wait. A place is kept
/// while bytes are waited for.
///
/// With retries, the limit belongs inside (CRetryClient around CLimitClient), lest pauses keep places. Safe from any
/// thread. Fails with nothing of its own. The destructor waits for the tasks, those in the queue too. Tasks and streams
/// may outlive the client.
class CLimitClient : public CInterceptingClient {
public:
    /// An empty timer is the system's.
    CLimitClient(std::shared_ptr<ICloudClient> inner, SLimits limits, std::shared_ptr<ITimer> timer = nullptr);
    ~CLimitClient() override;

    /// The smaller one of the two.
    std::size_t GetConcurrentTaskLimit() override;

    class CLimiter;

private:
    CLimitClient(std::shared_ptr<ICloudClient> inner, std::size_t operationsInFlight,
                 std::shared_ptr<CLimiter> limiter);

    const std::size_t operationsInFlight_;
    const std::shared_ptr<CLimiter> limiter_;
};

}  // namespace cloudclientlib
