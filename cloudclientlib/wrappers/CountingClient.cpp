#include "cloudclientlib/wrappers/CountingClient.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <utility>

#include "common/format.h"

namespace cloudclientlib {

/// The counts, shared by the client with its tasks and streams.
class CCountingClient::CCounter : public IInterceptor, public std::enable_shared_from_this<CCounter> {
public:
    task::task_ptr OnTask(const SInterceptedCall& call, start_t start) override;
    void OnCall(const SInterceptedCall& call, const run_t& run) override;
    std::shared_ptr<IDownloadStream> WrapDownload(const std::string& path,
                                                  std::shared_ptr<IDownloadStream> inner) override;
    std::shared_ptr<IUploadStream> WrapUpload(const std::string& path, std::shared_ptr<IUploadStream> inner) override;

    [[nodiscard]] SCallCounts Get() const;
    void Reset();
    void CountCall(EOperation operation);
    void CountBytesUp(std::uint64_t bytes);
    void CountBytesDown(std::uint64_t bytes);
    void TaskStarts();
    void TaskEnds();

private:
    mutable std::mutex mutex_;
    SCallCounts counts_;  // guarded by mutex_
};

namespace {

using counter_ptr = std::shared_ptr<CCountingClient::CCounter>;

/// Tells the counter when the caller no longer keeps the task in flight.
class CCountedTask : public task::IAsyncTask {
public:
    /// `received` is where a download's bytes go; null for other operations.
    CCountedTask(counter_ptr counter, task::task_ptr inner, ICloudClient::buffer_ptr received)
        : counter_(std::move(counter)), inner_(std::move(inner)), received_(std::move(received)) {}
    ~CCountedTask() override { End(false); }

    void Wait() override {
        try {
            inner_->Wait();
        } catch (...) {
            End(false);
            throw;
        }
        End(true);
    }

private:
    void End(bool isDone) {
        if (!isEnded_.exchange(true)) {
            if (isDone && received_) {
                counter_->CountBytesDown(received_->size());
            }
            counter_->TaskEnds();
        }
    }

    const counter_ptr counter_;
    const task::task_ptr inner_;
    const ICloudClient::buffer_ptr received_;
    std::atomic<bool> isEnded_ = false;
};

class CCountedDownload : public IDownloadStream {
public:
    CCountedDownload(counter_ptr counter, std::shared_ptr<IDownloadStream> inner)
        : counter_(std::move(counter)), inner_(std::move(inner)) {}

    std::size_t Read(std::span<char> buffer) override {
        counter_->CountCall(EOperation::streamRead);
        const std::size_t count = inner_->Read(buffer);
        counter_->CountBytesDown(count);
        return count;
    }

private:
    const counter_ptr counter_;
    const std::shared_ptr<IDownloadStream> inner_;
};

class CCountedUpload : public IUploadStream {
public:
    CCountedUpload(counter_ptr counter, std::shared_ptr<IUploadStream> inner)
        : counter_(std::move(counter)), inner_(std::move(inner)) {}

    void Write(std::span<const char> data) override {
        counter_->CountCall(EOperation::streamWrite);
        counter_->CountBytesUp(data.size());
        inner_->Write(data);
    }
    void Finish() override {
        counter_->CountCall(EOperation::streamFinish);
        inner_->Finish();
    }

private:
    const counter_ptr counter_;
    const std::shared_ptr<IUploadStream> inner_;
};

}  // namespace

task::task_ptr CCountingClient::CCounter::OnTask(const SInterceptedCall& call, start_t start) {
    CountCall(call.operation);
    const bool isUpload = call.operation == EOperation::uploadFile;
    if (isUpload) {
        CountBytesUp(call.buffer->size());
    }
    TaskStarts();
    try {
        return std::make_shared<CCountedTask>(shared_from_this(), start(), isUpload ? nullptr : call.buffer);
    } catch (...) {
        TaskEnds();
        throw;
    }
}

void CCountingClient::CCounter::OnCall(const SInterceptedCall& call, const run_t& run) {
    CountCall(call.operation);
    run();
}

std::shared_ptr<IDownloadStream> CCountingClient::CCounter::WrapDownload(const std::string&,
                                                                         std::shared_ptr<IDownloadStream> inner) {
    return std::make_shared<CCountedDownload>(shared_from_this(), std::move(inner));
}

std::shared_ptr<IUploadStream> CCountingClient::CCounter::WrapUpload(const std::string&,
                                                                     std::shared_ptr<IUploadStream> inner) {
    return std::make_shared<CCountedUpload>(shared_from_this(), std::move(inner));
}

SCallCounts CCountingClient::CCounter::Get() const {
    const std::lock_guard lock(mutex_);
    return counts_;
}

void CCountingClient::CCounter::Reset() {
    const std::lock_guard lock(mutex_);
    counts_ = {.tasksInFlight = counts_.tasksInFlight, .mostTasksInFlight = counts_.tasksInFlight};
}

void CCountingClient::CCounter::CountCall(EOperation operation) {
    const std::lock_guard lock(mutex_);
    ++counts_.calls[static_cast<std::size_t>(operation)];
}

void CCountingClient::CCounter::CountBytesUp(std::uint64_t bytes) {
    const std::lock_guard lock(mutex_);
    counts_.bytesUp += bytes;
}

void CCountingClient::CCounter::CountBytesDown(std::uint64_t bytes) {
    const std::lock_guard lock(mutex_);
    counts_.bytesDown += bytes;
}

void CCountingClient::CCounter::TaskStarts() {
    const std::lock_guard lock(mutex_);
    ++counts_.tasksInFlight;
    counts_.mostTasksInFlight = std::max(counts_.mostTasksInFlight, counts_.tasksInFlight);
}

void CCountingClient::CCounter::TaskEnds() {
    const std::lock_guard lock(mutex_);
    --counts_.tasksInFlight;
}

std::uint64_t SCallCounts::Of(const operation_set& operations) const {
    std::uint64_t sum = 0;
    for (const EOperation operation : operations) {
        sum += Of(operation);
    }
    return sum;
}

std::uint64_t SCallCounts::Total() const {
    std::uint64_t sum = 0;
    for (const std::uint64_t count : calls) {
        sum += count;
    }
    return sum;
}

std::string SCallCounts::ToAStr() const {
    std::string text;
    for (std::size_t kind = 0; kind < operationKinds; ++kind) {
        if (calls[kind] != 0) {
            text += exc::Format("%1 %2, ", ToStr(static_cast<EOperation>(kind)), calls[kind]);
        }
    }
    return text + exc::Format("%1 bytes up, %2 bytes down, %3 tasks in flight, at most %4", bytesUp, bytesDown,
                              tasksInFlight, mostTasksInFlight);
}

SCallCounts operator-(const SCallCounts& later, const SCallCounts& earlier) {
    SCallCounts result = later;
    for (std::size_t kind = 0; kind < operationKinds; ++kind) {
        result.calls[kind] -= earlier.calls[kind];
    }
    result.bytesUp -= earlier.bytesUp;
    result.bytesDown -= earlier.bytesDown;
    return result;
}

CCountingClient::CCountingClient(std::shared_ptr<ICloudClient> inner)
    : CCountingClient(std::move(inner), std::make_shared<CCounter>()) {}

CCountingClient::CCountingClient(std::shared_ptr<ICloudClient> inner, std::shared_ptr<CCounter> counter)
    : CInterceptingClient(std::move(inner), counter), counter_(std::move(counter)) {}

SCallCounts CCountingClient::GetCounts() const { return counter_->Get(); }

void CCountingClient::ResetCounts() { counter_->Reset(); }

}  // namespace cloudclientlib
