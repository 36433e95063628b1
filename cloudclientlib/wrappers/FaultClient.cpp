#include "cloudclientlib/wrappers/FaultClient.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/ObjectPath.h"
#include "common/format.h"

namespace cloudclientlib {

namespace {

enum class EVerdict {
    pass,
    /// This is the failing call.
    fault,
    /// The crash is past.
    crashed,
};

/// What is to become of one call.
struct SFate {
    EVerdict verdict = EVerdict::pass;
    EFaultMode mode = EFaultMode::notDone;
    std::uint64_t call = 0;
};

[[noreturn]] void ThrowInjected(EOperation operation, const std::string& path, const std::string& reason) {
    throw CCloudExc({EFailure::transient, true, std::string(FailureName(operation)), path, reason});
}

/// Fails a call after as much of it as its fate allows.
[[noreturn]] void Suffer(const SFate& fate, const SInterceptedCall& call, const IInterceptor::run_t& run,
                         const IInterceptor::run_t& runPart) {
    if (fate.verdict == EVerdict::crashed) {
        ThrowInjected(call.operation, call.path, "injected crash: the store is out of reach");
    }
    if (fate.mode == EFaultMode::doneButFailed) {
        run();
    } else if (fate.mode == EFaultMode::doneInPart) {
        runPart();
    }
    ThrowInjected(call.operation, call.path, exc::Format("injected fault at call %1, %2", fate.call, ToStr(fate.mode)));
}

void CreateParents(ICloudClient& client, EOperation operation, const std::string& path) {
    const std::string plain = NormalizeObjectPath(FailureName(operation), path);
    if (const auto slash = plain.rfind('/'); slash != std::string::npos) {
        client.CreateFolderAsync(plain.substr(0, slash))->Wait();
    }
}

void CollectObjects(ICloudClient& client, const std::string& folder, std::vector<std::string>& objects) {
    for (const auto& entry : client.QueryFolder(folder)) {
        const std::string path = folder + '/' + entry.name;
        if (entry.isFolder) {
            CollectObjects(client, path, objects);
        } else {
            objects.push_back(path);
        }
    }
}

void DeleteHalf(ICloudClient& client, const SInterceptedCall& call) {
    std::vector<std::string> objects;
    CollectObjects(client, NormalizeObjectPath(FailureName(call.operation), call.path), objects);
    std::sort(objects.begin(), objects.end());
    for (std::size_t i = 0; i < objects.size() / 2; ++i) {
        client.DeleteFileAsync(objects[i])->Wait();
        if (call.progress) {
            call.progress->SetProgress(i + 1, objects.size());
        }
    }
}

}  // namespace

/// The plan and its count, shared by the client with its streams.
class CFaultClient::CFaults : public IInterceptor, public std::enable_shared_from_this<CFaults> {
public:
    explicit CFaults(std::shared_ptr<ICloudClient> inner) : inner_(std::move(inner)) {}

    task::task_ptr OnTask(const SInterceptedCall& call, start_t start) override;
    void OnCall(const SInterceptedCall& call, const run_t& run) override;
    std::shared_ptr<IDownloadStream> WrapDownload(const std::string& path,
                                                  std::shared_ptr<IDownloadStream> inner) override;
    std::shared_ptr<IUploadStream> WrapUpload(const std::string& path, std::shared_ptr<IUploadStream> inner) override;

    void Arm(SFaultPlan plan);
    [[nodiscard]] bool IsReached() const;
    [[nodiscard]] std::uint64_t GetCallCount() const;

    /// Does a synchronous operation with whatever its fate is: `run` does all of it, `runPart` a part.
    void Meet(const SInterceptedCall& call, const run_t& run, const run_t& runPart);
    [[nodiscard]] ICloudClient& Inner() const { return *inner_; }

private:
    [[nodiscard]] SFate Judge(EOperation operation);
    void DoPart(const SInterceptedCall& call, const start_t& start) const;

    const std::shared_ptr<ICloudClient> inner_;
    mutable std::mutex mutex_;
    SFaultPlan plan_;          // guarded by mutex_
    std::uint64_t calls_ = 0;  // guarded by mutex_
    bool isReached_ = false;   // guarded by mutex_
};

namespace {

using faults_ptr = std::shared_ptr<CFaultClient::CFaults>;

/// Either stream of a fault client. Once failed it lets the stream inside go, which abandons it, and fails for ever.
template <class Stream>
class CFaultyStream {
public:
    CFaultyStream(faults_ptr faults, std::string path, std::shared_ptr<Stream> inner)
        : faults_(std::move(faults)), path_(std::move(path)), inner_(std::move(inner)) {}

protected:
    void Meet(EOperation operation, const IInterceptor::run_t& run, const IInterceptor::run_t& runPart) {
        if (!inner_) {
            ThrowInjected(operation, path_, "the stream has failed before");
        }
        try {
            faults_->Meet({.operation = operation, .path = path_}, run, runPart);
        } catch (...) {
            inner_.reset();
            throw;
        }
    }

    const faults_ptr faults_;
    const std::string path_;
    std::shared_ptr<Stream> inner_;
};

class CFaultyDownload : public IDownloadStream, private CFaultyStream<IDownloadStream> {
public:
    using CFaultyStream::CFaultyStream;

    std::size_t Read(std::span<char> buffer) override {
        std::size_t count = 0;
        Meet(
            EOperation::streamRead, [&] { count = inner_->Read(buffer); },
            [&] { count = inner_->Read(buffer.first(buffer.size() / 2)); });
        return count;
    }
};

class CFaultyUpload : public IUploadStream, private CFaultyStream<IUploadStream> {
public:
    using CFaultyStream::CFaultyStream;

    void Write(std::span<const char> data) override {
        Meet(
            EOperation::streamWrite, [&] { inner_->Write(data); }, [&] { inner_->Write(data.first(data.size() / 2)); });
    }
    void Finish() override {
        Meet(
            EOperation::streamFinish, [&] { inner_->Finish(); },
            [&] { CreateParents(faults_->Inner(), EOperation::streamFinish, path_); });
    }
};

}  // namespace

std::string_view ToStr(EFaultMode mode) {
    switch (mode) {
        case EFaultMode::notDone:
            return "not done";
        case EFaultMode::doneButFailed:
            return "done but failed";
        case EFaultMode::doneInPart:
            break;
    }
    return "done in part";
}

task::task_ptr CFaultClient::CFaults::OnTask(const SInterceptedCall& call, start_t start) {
    const SFate fate = Judge(call.operation);
    if (fate.verdict == EVerdict::pass) {
        return start();
    }
    return task::RunNow([&] {
        Suffer(
            fate, call, [&] { start()->Wait(); }, [&] { DoPart(call, start); });
    });
}

void CFaultClient::CFaults::OnCall(const SInterceptedCall& call, const run_t& run) {
    Meet(call, run, [] {});
}

std::shared_ptr<IDownloadStream> CFaultClient::CFaults::WrapDownload(const std::string& path,
                                                                     std::shared_ptr<IDownloadStream> inner) {
    return std::make_shared<CFaultyDownload>(shared_from_this(), path, std::move(inner));
}

std::shared_ptr<IUploadStream> CFaultClient::CFaults::WrapUpload(const std::string& path,
                                                                 std::shared_ptr<IUploadStream> inner) {
    return std::make_shared<CFaultyUpload>(shared_from_this(), path, std::move(inner));
}

void CFaultClient::CFaults::Arm(SFaultPlan plan) {
    const std::lock_guard lock(mutex_);
    plan_ = std::move(plan);
    calls_ = 0;
    isReached_ = false;
}

bool CFaultClient::CFaults::IsReached() const {
    const std::lock_guard lock(mutex_);
    return isReached_;
}

std::uint64_t CFaultClient::CFaults::GetCallCount() const {
    const std::lock_guard lock(mutex_);
    return calls_;
}

void CFaultClient::CFaults::Meet(const SInterceptedCall& call, const run_t& run, const run_t& runPart) {
    const SFate fate = Judge(call.operation);
    if (fate.verdict == EVerdict::pass) {
        run();
    } else {
        Suffer(fate, call, run, runPart);
    }
}

SFate CFaultClient::CFaults::Judge(EOperation operation) {
    const std::lock_guard lock(mutex_);
    const bool isCounted = plan_.kinds.contains(operation);
    if (isCounted) {
        ++calls_;
    }
    if (isReached_ && plan_.crash && StoreOperations().contains(operation)) {
        return {.verdict = EVerdict::crashed};
    }
    if (!isCounted || calls_ != plan_.call) {
        return {};
    }
    isReached_ = true;
    return {.verdict = EVerdict::fault, .mode = plan_.mode, .call = plan_.call};
}

void CFaultClient::CFaults::DoPart(const SInterceptedCall& call, const start_t& start) const {
    switch (call.operation) {
        case EOperation::downloadFile:
        case EOperation::downloadFileRange:
            start()->Wait();
            call.buffer->resize(call.buffer->size() / 2);
            break;
        case EOperation::uploadFile:
        case EOperation::createFolder:
            CreateParents(*inner_, call.operation, call.path);
            break;
        case EOperation::copyFile:
            CreateParents(*inner_, call.operation, call.target);
            break;
        case EOperation::deleteFolder:
            DeleteHalf(*inner_, call);
            break;
        default:  // nothing that could be done in part
            break;
    }
}

CFaultClient::CFaultClient(std::shared_ptr<ICloudClient> inner)
    : CFaultClient(inner, std::make_shared<CFaults>(inner)) {}

CFaultClient::CFaultClient(std::shared_ptr<ICloudClient> inner, std::shared_ptr<CFaults> faults)
    : CInterceptingClient(std::move(inner), faults), faults_(std::move(faults)) {}

void CFaultClient::Arm(SFaultPlan plan) { faults_->Arm(std::move(plan)); }

void CFaultClient::Disarm() { faults_->Arm({}); }

bool CFaultClient::IsReached() const { return faults_->IsReached(); }

std::uint64_t CFaultClient::GetCallCount() const { return faults_->GetCallCount(); }

}  // namespace cloudclientlib
