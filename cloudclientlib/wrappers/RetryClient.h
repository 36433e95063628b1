#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "cloudclientlib/wrappers/InterceptingClient.h"
#include "cloudclientlib/wrappers/Timer.h"

namespace cloudclientlib {

/// How often, and how long, a failed operation is tried again.
struct SRetryOptions {
    /// In all, the first one included; at least 1.
    unsigned attempts = 8;
    /// The first pause is up to `base` long, each further one up to twice as long as the one before, none over `cap`.
    std::chrono::milliseconds base{200};
    std::chrono::milliseconds cap{20'000};
    /// For one operation, from its first failure: no attempt begins later. How long the first one takes does not count:
    /// an upload over a slow line, or within a limit, is not less worth for it.
    std::chrono::milliseconds deadline{180'000};
    /// Empty for the system's.
    std::shared_ptr<ITimer> timer = nullptr;
    /// A number from 0 to 1, at each call another, from any thread; empty for a generator seeded by the system.
    std::function<double()> random = nullptr;
};

/// A client that tries again what failed in a way that may pass (CCloudExc::IsRetryable, nothing else).
///
/// The pauses grow exponentially up to a cap and are drawn at random between nothing and that ("full jitter"), so that
/// many clients do not come back to a troubled service all at once. When the service says how long to wait
/// (CCloudExc::GetRetryAfter), the pause is at least that. When the attempts are used up, or the next one would begin
/// past the deadline, the last failure is thrown, with the number of attempts in its text; a failure of a class derived
/// from CCloudExc is thrown as it is. Every retry is logged as a warning.
///
/// A whole operation is repeated. That does no harm when the one before was done and only its answer was lost: all of
/// them come to the same when done twice. A folder's deletion goes on telling its progress from where it was.
///
/// Of streams only the start is tried again. A read in mid-stream is not: it may only go on in the same version of the
/// object, which none but the client inside can tell. Nor are writes and the finish: the bytes written before are gone.
///
/// Asynchronous operations run, and pause, on threads of this client, as many as the limit of the client inside; beyond
/// that they queue. Their failures come through the task, those of invalid paths too. Synchronous operations run in the
/// caller's thread. Safe from any thread. The destructor waits for what is in flight, its retries included. Tasks and
/// streams may outlive the client.
class CRetryClient : public CInterceptingClient {
public:
    explicit CRetryClient(std::shared_ptr<ICloudClient> inner, SRetryOptions options = {});

    task::task_ptr DeleteFolderAsync(const std::string& path,
                                     std::shared_ptr<progress::progress_base_t> progress) override;

    /// Tries something of one's own, in the caller's thread, as this client tries its operations.
    static void Retry(SRetryOptions options, const std::function<void()>& operation);

    class CRetrier;

private:
    class CAttempts;

    CRetryClient(std::shared_ptr<ICloudClient> inner, std::shared_ptr<CRetrier> retrier);

    const std::shared_ptr<CRetrier> retrier_;  // nobody else keeps it: its threads end with the client
};

}  // namespace cloudclientlib
