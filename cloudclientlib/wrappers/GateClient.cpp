#include "cloudclientlib/wrappers/GateClient.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

namespace cloudclientlib {

namespace {

/// An operation that waits at the gate, and begins when it passes.
class IHeld {
public:
    virtual ~IHeld() = default;
    virtual void Pass() = 0;
};

/// An asynchronous operation: the caller has it as a task already.
class CHeldTask : public IHeld, public task::IAsyncTask {
public:
    explicit CHeldTask(IInterceptor::start_t start) : start_(std::move(start)) {}

    void Pass() override {
        try {
            inner_ = std::exchange(start_, nullptr)();
            started_.SetDone();
        } catch (...) {
            started_.SetFailed(std::current_exception());
        }
    }
    void Wait() override {
        started_.Wait();
        inner_->Wait();
    }

private:
    IInterceptor::start_t start_;
    task::task_ptr inner_;  // set before started_
    task::CPromiseTask started_;
};

/// A synchronous operation: its caller is blocked in Wait.
class CHeldCall : public IHeld {
public:
    void Pass() override { passed_.SetDone(); }
    void Wait() { passed_.Wait(); }

private:
    task::CPromiseTask passed_;
};

}  // namespace

/// The gate itself, shared by the client with its streams.
class CGateClient::CGate : public IInterceptor, public std::enable_shared_from_this<CGate> {
public:
    explicit CGate(operation_set kinds) : kinds_(std::move(kinds)) {}

    task::task_ptr OnTask(const SInterceptedCall& call, start_t start) override;
    void OnCall(const SInterceptedCall& call, const run_t& run) override;
    std::shared_ptr<IDownloadStream> WrapDownload(const std::string& path,
                                                  std::shared_ptr<IDownloadStream> inner) override;
    std::shared_ptr<IUploadStream> WrapUpload(const std::string& path, std::shared_ptr<IUploadStream> inner) override;

    void Close();
    void Open();
    void Release(std::size_t count);
    void WaitHeld(std::size_t count);
    [[nodiscard]] std::size_t GetHeld() const;

private:
    /// Whether the operation is now in the queue.
    bool Hold(EOperation operation, const std::shared_ptr<IHeld>& held);

    const operation_set kinds_;
    mutable std::mutex mutex_;
    std::condition_variable arrived_;
    bool isClosed_ = false;                    // guarded by mutex_
    std::deque<std::shared_ptr<IHeld>> held_;  // guarded by mutex_
};

namespace {

class CGatedDownload : public IDownloadStream {
public:
    CGatedDownload(std::shared_ptr<IInterceptor> gate, std::string path, std::shared_ptr<IDownloadStream> inner)
        : gate_(std::move(gate)), path_(std::move(path)), inner_(std::move(inner)) {}

    std::size_t Read(std::span<char> buffer) override {
        std::size_t count = 0;
        gate_->OnCall({.operation = EOperation::streamRead, .path = path_}, [&] { count = inner_->Read(buffer); });
        return count;
    }

private:
    const std::shared_ptr<IInterceptor> gate_;
    const std::string path_;
    const std::shared_ptr<IDownloadStream> inner_;
};

class CGatedUpload : public IUploadStream {
public:
    CGatedUpload(std::shared_ptr<IInterceptor> gate, std::string path, std::shared_ptr<IUploadStream> inner)
        : gate_(std::move(gate)), path_(std::move(path)), inner_(std::move(inner)) {}

    void Write(std::span<const char> data) override {
        gate_->OnCall({.operation = EOperation::streamWrite, .path = path_}, [&] { inner_->Write(data); });
    }
    void Finish() override {
        gate_->OnCall({.operation = EOperation::streamFinish, .path = path_}, [&] { inner_->Finish(); });
    }

private:
    const std::shared_ptr<IInterceptor> gate_;
    const std::string path_;
    const std::shared_ptr<IUploadStream> inner_;
};

}  // namespace

task::task_ptr CGateClient::CGate::OnTask(const SInterceptedCall& call, start_t start) {
    const auto held = std::make_shared<CHeldTask>(start);
    return Hold(call.operation, held) ? held : start();
}

void CGateClient::CGate::OnCall(const SInterceptedCall& call, const run_t& run) {
    const auto held = std::make_shared<CHeldCall>();
    if (Hold(call.operation, held)) {
        held->Wait();
    }
    run();
}

std::shared_ptr<IDownloadStream> CGateClient::CGate::WrapDownload(const std::string& path,
                                                                  std::shared_ptr<IDownloadStream> inner) {
    return std::make_shared<CGatedDownload>(shared_from_this(), path, std::move(inner));
}

std::shared_ptr<IUploadStream> CGateClient::CGate::WrapUpload(const std::string& path,
                                                              std::shared_ptr<IUploadStream> inner) {
    return std::make_shared<CGatedUpload>(shared_from_this(), path, std::move(inner));
}

bool CGateClient::CGate::Hold(EOperation operation, const std::shared_ptr<IHeld>& held) {
    const std::lock_guard lock(mutex_);
    if (!isClosed_ || !kinds_.contains(operation)) {
        return false;
    }
    held_.push_back(held);
    arrived_.notify_all();
    return true;
}

void CGateClient::CGate::Close() {
    const std::lock_guard lock(mutex_);
    isClosed_ = true;
}

void CGateClient::CGate::Open() {
    std::unique_lock lock(mutex_);
    // Closed until the last one is through, lest a newcomer overtakes those who wait.
    while (!held_.empty()) {
        const auto first = std::move(held_.front());
        held_.pop_front();
        lock.unlock();
        first->Pass();
        lock.lock();
    }
    isClosed_ = false;
}

void CGateClient::CGate::Release(std::size_t count) {
    for (; count > 0; --count) {
        std::unique_lock lock(mutex_);
        arrived_.wait(lock, [this] { return !held_.empty(); });
        const auto first = std::move(held_.front());
        held_.pop_front();
        lock.unlock();
        first->Pass();
    }
}

void CGateClient::CGate::WaitHeld(std::size_t count) {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [&] { return held_.size() >= count; });
}

std::size_t CGateClient::CGate::GetHeld() const {
    const std::lock_guard lock(mutex_);
    return held_.size();
}

CGateClient::CGateClient(std::shared_ptr<ICloudClient> inner, operation_set kinds)
    : CGateClient(std::move(inner), std::make_shared<CGate>(std::move(kinds))) {}

CGateClient::CGateClient(std::shared_ptr<ICloudClient> inner, std::shared_ptr<CGate> gate)
    : CInterceptingClient(std::move(inner), gate), gate_(std::move(gate)) {}

CGateClient::~CGateClient() { gate_->Open(); }

void CGateClient::Close() { gate_->Close(); }

void CGateClient::Open() { gate_->Open(); }

void CGateClient::Release(std::size_t count) { gate_->Release(count); }

void CGateClient::WaitHeld(std::size_t count) { gate_->WaitHeld(count); }

std::size_t CGateClient::GetHeld() const { return gate_->GetHeld(); }

}  // namespace cloudclientlib
