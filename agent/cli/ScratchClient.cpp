#include "agent/cli/ScratchClient.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "cloudbackuplib/RestrictedCloudClient.h"
#include "cloudclientlib/CloudExc.h"
#include "cloudclientlib/wrappers/InterceptingClient.h"

namespace agent {

using namespace cloudclientlib;  // NOLINT(google-build-using-namespace): a client made of its parts

namespace {

/// A path that is none is left to the store's client to refuse.
bool IsRoot(const std::string& path) { return path.find_first_not_of('/') == std::string::npos; }

/// The folder's own part: where it differs from a folder that is like any other.
class CConfinedClient : public CRestrictedCloudClient {
public:
    using CRestrictedCloudClient::CRestrictedCloudClient;

    bool IsFolderExist(const std::string& path) override {
        return IsRoot(path) || CRestrictedCloudClient::IsFolderExist(path);
    }
    std::uint64_t GetObjectCount(const std::string& path) override {
        return CRestrictedCloudClient::GetObjectCount(ToRealPath(path));
    }
};

/// The paths of a call, as the caller gave them, and as the store's client gets them.
class CPaths {
public:
    CPaths(const CRestrictedCloudClient& client, std::initializer_list<std::string> given) {
        for (const auto& path : given) {
            paths_.emplace_back(path, client.ToRealPath(path));
        }
    }

    /// Runs `work`; its failures leave with the caller's paths.
    template <class TWork>
    auto Named(TWork&& work) const -> decltype(work()) {
        try {
            return std::forward<TWork>(work)();
        } catch (const CObjectNotFoundExc& failure) {
            throw CObjectNotFoundExc(failure.GetOperation(), GivenOf(failure.GetPath()));
        } catch (const CCloudExc& failure) {
            throw CCloudExc({failure.GetKind(), failure.IsRetryable(), failure.GetOperation(),
                             GivenOf(failure.GetPath()), ReasonOf(failure), failure.GetRetryAfter()});
        }
    }

private:
    [[nodiscard]] std::string GivenOf(const std::string& real) const {
        const auto found =
            std::find_if(paths_.begin(), paths_.end(), [&](const auto& path) { return path.second == real; });
        return found == paths_.end() ? real : found->first;
    }

    /// With the causes, all that stands behind "operation 'path': "; a NUL there takes two characters.
    static std::string ReasonOf(const CCloudExc& failure) {
        const auto& path = failure.GetPath();
        const auto shown = path.size() + static_cast<std::size_t>(std::count(path.begin(), path.end(), '\0'));
        return std::string(failure.what()).substr(failure.GetOperation().size() + shown + 5);
    }

    std::vector<std::pair<std::string, std::string>> paths_;
};

class CNamedTask : public task::IAsyncTask {
public:
    CNamedTask(task::task_ptr inner, CPaths paths) : inner_(std::move(inner)), paths_(std::move(paths)) {}
    void Wait() override {
        paths_.Named([this] { inner_->Wait(); });
    }

private:
    const task::task_ptr inner_;
    const CPaths paths_;
};

class CNamedDownload : public IDownloadStream {
public:
    CNamedDownload(std::shared_ptr<IDownloadStream> inner, CPaths paths)
        : inner_(std::move(inner)), paths_(std::move(paths)) {}
    std::size_t Read(std::span<char> buffer) override {
        return paths_.Named([&] { return inner_->Read(buffer); });
    }

private:
    const std::shared_ptr<IDownloadStream> inner_;
    const CPaths paths_;
};

class CNamedUpload : public IUploadStream {
public:
    CNamedUpload(std::shared_ptr<IUploadStream> inner, CPaths paths)
        : inner_(std::move(inner)), paths_(std::move(paths)) {}
    void Write(std::span<const char> data) override {
        paths_.Named([&] { inner_->Write(data); });
    }
    void Finish() override {
        paths_.Named([this] { inner_->Finish(); });
    }

private:
    const std::shared_ptr<IUploadStream> inner_;
    const CPaths paths_;
};

/// Refuses to write the root, which is an ordinary path to the store; gives failures the caller's paths.
class CScratchRules : public IInterceptor {
public:
    explicit CScratchRules(std::shared_ptr<CRestrictedCloudClient> client) : client_(std::move(client)) {}

    task::task_ptr OnTask(const SInterceptedCall& call, start_t start) override {
        const CPaths paths(*client_, {call.path, call.target});
        if (call.operation == EOperation::uploadFile) {
            RefuseRoot(call.operation, call.path);
        } else if (call.operation == EOperation::copyFile) {
            RefuseRoot(call.operation, call.target);
        }
        return std::make_shared<CNamedTask>(paths.Named(start), paths);
    }

    void OnCall(const SInterceptedCall& call, const run_t& run) override {
        if (call.operation == EOperation::startUpload) {
            RefuseRoot(call.operation, call.path);
        }
        CPaths(*client_, {call.path}).Named(run);
    }

    std::shared_ptr<IDownloadStream> WrapDownload(const std::string& path,
                                                  std::shared_ptr<IDownloadStream> inner) override {
        return std::make_shared<CNamedDownload>(std::move(inner), CPaths(*client_, {path}));
    }
    std::shared_ptr<IUploadStream> WrapUpload(const std::string& path, std::shared_ptr<IUploadStream> inner) override {
        return std::make_shared<CNamedUpload>(std::move(inner), CPaths(*client_, {path}));
    }

private:
    static void RefuseRoot(EOperation operation, const std::string& path) {
        if (IsRoot(path)) {
            throw CCloudExc(
                {EFailure::conflict, false, std::string(FailureName(operation)), path, "the root is a folder"});
        }
    }

    const std::shared_ptr<CRestrictedCloudClient> client_;
};

}  // namespace

std::shared_ptr<ICloudClient> MakeScratchClient(std::shared_ptr<ICloudClient> store, const std::string& folder) {
    auto confined = std::make_shared<CConfinedClient>(std::move(store), folder);
    return std::make_shared<CInterceptingClient>(confined, std::make_shared<CScratchRules>(confined));
}

}  // namespace agent
