#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "cloudclientlib/wrappers/FaultClient.h"
#include "cloudclientlib/wrappers/RetryClient.h"
#include "tests/wrappers/FakeTimer.h"
#include "tests/wrappers/WrapperFixture.h"

namespace cloudclientlib {

/// Retries without waiting, with the longest pauses there may be.
[[nodiscard]] inline SRetryOptions FastRetries(std::shared_ptr<ITimer> timer = std::make_shared<CFakeTimer>()) {
    return {.timer = std::move(timer), .random = [] { return 1.0; }};
}

/// A client whose every operation does first what a test gives it; throwing is failing. Asynchronous operations do it
/// in the call, and fail through their task.
class CScriptedClient : public CInterceptingClient {
public:
    using script_t = std::function<void(const SInterceptedCall& call)>;

    CScriptedClient(std::shared_ptr<ICloudClient> inner, script_t script)
        : CInterceptingClient(std::move(inner), std::make_shared<CScript>(std::move(script))) {}

private:
    class CScript : public IInterceptor {
    public:
        explicit CScript(script_t script) : script_(std::move(script)) {}
        task::task_ptr OnTask(const SInterceptedCall& call, start_t start) override {
            return task::RunNow([&] {
                script_(call);
                start()->Wait();
            });
        }
        void OnCall(const SInterceptedCall& call, const run_t& run) override {
            script_(call);
            run();
        }
        std::shared_ptr<IDownloadStream> WrapDownload(const std::string&,
                                                      std::shared_ptr<IDownloadStream> inner) override {
            return inner;
        }
        std::shared_ptr<IUploadStream> WrapUpload(const std::string&, std::shared_ptr<IUploadStream> inner) override {
            return inner;
        }

    private:
        const script_t script_;
    };
};

/// A client whose first `count` calls of the kinds fail.
[[nodiscard]] inline std::shared_ptr<ICloudClient> FailingFirst(std::shared_ptr<ICloudClient> store, int count,
                                                                EFaultMode mode, const operation_set& kinds) {
    const auto faults = std::make_shared<CFaultClient>(std::move(store));
    const auto left = std::make_shared<std::atomic<int>>(count);
    return std::make_shared<CScriptedClient>(faults, [=](const SInterceptedCall& call) {
        if (kinds.contains(call.operation)) {
            faults->Arm({.call = (*left)-- > 0 ? 1U : 0U, .mode = mode, .kinds = kinds});
        }
    });
}

class CRecordedProgress : public progress::progress_base_t {
public:
    void SetProgress(std::uint64_t done, std::uint64_t total) override {
        calls.push_back(std::to_string(done) + '/' + std::to_string(total));
    }
    std::vector<std::string> calls;
};

}  // namespace cloudclientlib
