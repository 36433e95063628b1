#pragma once

#include <cstddef>
#include <memory>

#include "cloudclientlib/wrappers/InterceptingClient.h"

namespace cloudclientlib {

/// A client whose operations wait at a gate: for tests that fix the order of what happens at once.
///
/// While the gate is closed, operations are held: an asynchronous one is queued and its task returned, a synchronous
/// one (those of streams too) blocks its caller. They are let through in the order in which they arrived. An
/// asynchronous operation that was held is started in the thread that lets it through, before the call that does so
/// returns. Open, as it is at first, the gate changes nothing.
///
/// Safe from any thread. Destroying the client opens the gate and starts what is held, so no task waits for ever; no
/// caller may be blocked in it by then. Tasks and streams may outlive the client.
class CGateClient : public CInterceptingClient {
public:
    /// Holds operations of the given kinds only.
    explicit CGateClient(std::shared_ptr<ICloudClient> inner, operation_set kinds = StoreOperations());
    ~CGateClient() override;

    void Close();
    /// Lets everything through, what is held first.
    void Open();
    /// Lets the first `count` of the held operations through; the gate stays as it is. When fewer are held, waits until
    /// enough have come.
    void Release(std::size_t count = 1);
    /// Blocks until `count` operations are held.
    void WaitHeld(std::size_t count);
    [[nodiscard]] std::size_t GetHeld() const;

    class CGate;

private:
    CGateClient(std::shared_ptr<ICloudClient> inner, std::shared_ptr<CGate> gate);

    const std::shared_ptr<CGate> gate_;
};

}  // namespace cloudclientlib
