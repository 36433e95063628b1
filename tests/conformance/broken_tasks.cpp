#include <atomic>
#include <mutex>

#include "cloudclientlib/CloudExc.h"
#include "tests/conformance/HookedClient.h"

namespace cloudclientlib::conformance {

namespace {

using start_t = std::function<task::task_ptr()>;

/// A task made of what its Wait does.
class CFunctionTask : public task::IAsyncTask {
public:
    explicit CFunctionTask(std::function<void()> wait, std::function<void()> drop = {})
        : wait_(std::move(wait)), drop_(std::move(drop)) {}
    ~CFunctionTask() override {
        if (drop_) {
            drop_();
        }
    }
    void Wait() override { wait_(); }

private:
    const std::function<void()> wait_;
    const std::function<void()> drop_;
};

/// Nothing is done before somebody waits.
SHooks IsDoneWhenWaitedFor() {
    SHooks hooks;
    hooks.task = [](const start_t& start) {
        const auto mutex = std::make_shared<std::mutex>();
        const auto started = std::make_shared<task::task_ptr>();
        return std::make_shared<CFunctionTask>([=] {
            const std::lock_guard lock(*mutex);
            if (!*started) {
                *started = start();
            }
            (*started)->Wait();
        });
    };
    return hooks;
}

SHooks FailsAtTheFirstWaitOnly() {
    SHooks hooks;
    hooks.task = [](const start_t& start) {
        const auto isWaited = std::make_shared<std::atomic<bool>>(false);
        return std::make_shared<CFunctionTask>([isWaited, inner = start()] {
            if (!isWaited->exchange(true)) {
                inner->Wait();
            }
        });
    };
    return hooks;
}

SHooks CanBeWaitedForOnceOnly() {
    SHooks hooks;
    hooks.task = [](const start_t& start) {
        const auto isWaited = std::make_shared<std::atomic<bool>>(false);
        return std::make_shared<CFunctionTask>([isWaited, inner = start()] {
            if (isWaited->exchange(true)) {
                Fail("Wait", "no state");
            }
            inner->Wait();
        });
    };
    return hooks;
}

/// A task cannot be waited for once its client is closed; here a client counts as closed when the check goes on with a
/// new one, which reads.
SHooks TasksNeedTheirClient() {
    SHooks hooks;
    const auto reads = std::make_shared<std::atomic<int>>(0);
    hooks.fileExists = [reads](ICloudClient& client, text_t path) {
        ++*reads;
        return client.IsFileExist(path);
    };
    hooks.task = [reads](const start_t& start) {
        return std::make_shared<CFunctionTask>([reads, before = reads->load(), inner = start()] {
            if (reads->load() != before) {
                Fail("Wait", "client closed");
            }
            inner->Wait();
        });
    };
    return hooks;
}

/// Fewer tasks than the limit says may be in flight.
SHooks RefusesTheFifthTask() {
    SHooks hooks;
    const auto inFlight = std::make_shared<std::atomic<int>>(0);
    hooks.task = [inFlight](const start_t& start) {
        if (++*inFlight > 4) {
            --*inFlight;
            Fail("Start", "too many tasks");
        }
        return std::make_shared<CFunctionTask>([inner = start()] { inner->Wait(); }, [inFlight] { --*inFlight; });
    };
    return hooks;
}

SHooks KeepsBuffers() {
    SHooks hooks;
    const auto buffers = std::make_shared<std::vector<buffer_ptr>>();
    hooks.upload = [buffers](ICloudClient& client, text_t path, const buffer_ptr& data) {
        client.UploadFileAsync(path, data)->Wait();
        buffers->push_back(data);
    };
    return hooks;
}

SHooks AllowsNoTask() {
    SHooks hooks;
    hooks.limit = [](ICloudClient&) { return std::size_t{0}; };
    return hooks;
}

class CFunctionUtils : public task::IAsyncTaskUtils {
public:
    using wait_t = std::function<void(std::span<const task::task_ptr>)>;
    explicit CFunctionUtils(wait_t wait) : wait_(std::move(wait)) {}
    void WaitAll(std::span<const task::task_ptr> tasks) override { wait_(tasks); }

private:
    const wait_t wait_;
};

SHooks WithUtils(const CFunctionUtils::wait_t& wait) {
    SHooks hooks;
    hooks.utils = [wait] { return std::make_shared<CFunctionUtils>(wait); };
    return hooks;
}

SHooks UtilsStopAtFirstFailure() {
    return WithUtils([](std::span<const task::task_ptr> tasks) {
        for (const auto& one : tasks) {
            one->Wait();
        }
    });
}

SHooks UtilsThrowLastFailure() {
    return WithUtils([](std::span<const task::task_ptr> tasks) {
        std::exception_ptr failure;
        for (const auto& one : tasks) {
            try {
                one->Wait();
            } catch (...) {
                failure = std::current_exception();
            }
        }
        if (failure) {
            std::rethrow_exception(failure);
        }
    });
}

SHooks UtilsSwallowFailures() {
    return WithUtils([](std::span<const task::task_ptr> tasks) {
        for (const auto& one : tasks) {
            try {
                one->Wait();
            } catch (const std::exception&) {  // and nobody learns of it
            }
        }
    });
}

SHooks UtilsRefuseNothing() {
    return WithUtils([](std::span<const task::task_ptr> tasks) {
        if (tasks.empty()) {
            Fail("WaitAll", "no tasks");
        }
        task::CreateTaskUtils()->WaitAll(tasks);
    });
}

}  // namespace

std::vector<SBroken> BrokenInTasks() {
    return {
        {"IsDoneWhenWaitedFor",
         IsDoneWhenWaitedFor,
         {"TasksLetGoAreDone", "ChangesLetGoAreDone", "DownloadsLetGoAreDone", "TasksOutliveClient"}},
        {"FailsAtTheFirstWaitOnly", FailsAtTheFirstWaitOnly, {"SameFailureAtEveryWait", "ManyThreadsWaitForOneTask"}},
        {"CanBeWaitedForOnceOnly",
         CanBeWaitedForOnceOnly,
         {"SuccessAtEveryWait", "SameFailureAtEveryWait", "ManyThreadsWaitForOneTask"}},
        {"TasksNeedTheirClient", TasksNeedTheirClient, {"TasksOutliveClient"}},
        {"RefusesTheFifthTask", RefusesTheFifthTask, {"TasksInFlightUpToLimit"}},
        {"KeepsBuffers", KeepsBuffers, {"BuffersAreHeldUntilDone"}},
        {"AllowsNoTask", AllowsNoTask, {"LimitIsAtLeastOne"}},
        {"UtilsStopAtFirstFailure", UtilsStopAtFirstFailure, {"UtilsWaitForAll"}},
        {"UtilsThrowLastFailure", UtilsThrowLastFailure, {"UtilsWaitForAll", "UtilsThrowFirstFailure"}},
        {"UtilsSwallowFailures", UtilsSwallowFailures, {"UtilsWaitForAll", "UtilsThrowFirstFailure"}},
        {"UtilsRefuseNothing", UtilsRefuseNothing, {"UtilsWaitForNothing"}},
    };
}

}  // namespace cloudclientlib::conformance
