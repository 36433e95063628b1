#pragma once

#include <vector>

#include "cloudclientlib/ICloudClient.h"

namespace cloudbackuplib::backup {

/// The tasks that one operation has in flight.
///
/// For one thread. Does not own the client, which outlives it. When it is let go before Wait, because the next task
/// could not be started, the destructor waits and drops the failures: nothing is in flight afterwards.
class CTaskGroup {
public:
    explicit CTaskGroup(cloudclientlib::ICloudClient& client) : client_(client) {}
    CTaskGroup(const CTaskGroup&) = delete;
    CTaskGroup& operator=(const CTaskGroup&) = delete;
    ~CTaskGroup();

    void Add(task::task_ptr task) { tasks_.push_back(std::move(task)); }
    /// Waits for all tasks, then throws the first failure.
    void Wait();

private:
    cloudclientlib::ICloudClient& client_;
    std::vector<task::task_ptr> tasks_;
};

/// A task that is done and has failed with the exception being handled: for a call that failed before it gave a task.
[[nodiscard]] task::task_ptr FailedWithCurrentException();

/// A task that ends when `inner` does and never fails.
[[nodiscard]] task::task_ptr IgnoringFailure(task::task_ptr inner);

}  // namespace cloudbackuplib::backup
