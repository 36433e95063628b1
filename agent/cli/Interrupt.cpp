#include "agent/cli/Interrupt.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <utility>

#include "agent/cli/Command.h"
#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/wrappers/InterceptingClient.h"
#include "common/exc.h"

namespace agent {

namespace {

constexpr std::array<int, 3> signals{SIGINT, SIGTERM, SIGHUP};

std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set by a signal's handler");

std::string& Message() {
    static std::string message;
    return message;
}

void OnSignal(int) {
    if (interrupted.exchange(true)) {
        ::_exit(exitInterrupted);
    }
}

void Handle(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    for (const int signal : signals) {
        struct sigaction before {};
        // What is to be ignored (nohup) stays so.
        if (::sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
            ::sigaction(signal, &action, nullptr);
        }
    }
}

/// Lets calls through until the user interrupts the run.
class CInterruption : public cloudclientlib::IInterceptor {
public:
    task::task_ptr OnTask(const cloudclientlib::SInterceptedCall& call, start_t start) override {
        Check(call);
        return start();
    }
    void OnCall(const cloudclientlib::SInterceptedCall& call, const run_t& run) override {
        Check(call);
        run();
    }
    std::shared_ptr<cloudclientlib::IDownloadStream> WrapDownload(
        const std::string& /*path*/, std::shared_ptr<cloudclientlib::IDownloadStream> inner) override {
        return inner;
    }
    std::shared_ptr<cloudclientlib::IUploadStream> WrapUpload(
        const std::string& /*path*/, std::shared_ptr<cloudclientlib::IUploadStream> inner) override {
        return inner;
    }

private:
    static void Check(const cloudclientlib::SInterceptedCall& call) {
        if (interrupted) {
            cloudclientlib::SFailure failure;
            failure.operation = cloudclientlib::ToStr(call.operation);
            failure.path = call.path;
            failure.reason = "interrupted";
            throw cloudclientlib::CCloudExc(failure);
        }
    }
};

}  // namespace

CInterruptScope::CInterruptScope(std::string message) : message_(std::move(message)) {
    Message() = message_;
    Handle(OnSignal);
}

CInterruptScope::~CInterruptScope() { Handle(SIG_DFL); }

void CInterruptScope::Check() const {
    if (interrupted) {
        throw exc::CRuntimeExc("%1", message_);
    }
}

std::shared_ptr<cloudclientlib::ICloudClient> MakeInterruptible(std::shared_ptr<cloudclientlib::ICloudClient> client) {
    return std::make_shared<cloudclientlib::CInterceptingClient>(std::move(client), std::make_shared<CInterruption>());
}

bool IsInterrupted() { return interrupted; }

const std::string& GetInterruptMessage() { return Message(); }

}  // namespace agent
