#include <algorithm>
#include <atomic>

#include "cloudclientlib/conformance/Checks.h"
#include "cloudclientlib/conformance/Tools.h"

namespace cloudclientlib::conformance {

namespace {

task::task_ptr DownloadOfMissing(CContext& context, const std::string& path) {
    return context.Client().DownloadFileAsync(path, Share({}));
}

void LimitIsAtLeastOne(CContext& context) {
    const std::size_t limit = context.Client().GetConcurrentTaskLimit();
    Expect(limit >= 1, "the limit of tasks in flight is at least 1");
    ExpectEqual(context.Client().GetConcurrentTaskLimit(), limit, "the limit, asked again");
}

void SuccessAtEveryWait(CContext& context) {
    const auto upload = context.Client().UploadFileAsync("object", Share(MakeBytes(1, 100)));
    for (int i = 0; i < 3; ++i) {
        upload->Wait();
    }
    ExpectObject(context.Client(), "object", MakeBytes(1, 100));
}

void SameFailureAtEveryWait(CContext& context) {
    const auto download = DownloadOfMissing(context, "missing");
    const auto first = FailureOf("the first Wait", [&] { download->Wait(); });
    for (int i = 0; i < 3; ++i) {
        ExpectNotFound("DownloadFile", [&] { download->Wait(); });
        const auto again = FailureOf("another Wait", [&] { download->Wait(); });
        ExpectEqual(std::string(again.what()), std::string(first.what()), "the failure at another Wait");
    }
}

void ManyThreadsWaitForOneTask(CContext& context) {
    const auto upload = context.Client().UploadFileAsync("object", Share(MakeBytes(1, 100'000)));
    const auto download = DownloadOfMissing(context, "missing");
    const auto wait = [&] {
        upload->Wait();
        ExpectNotFound("DownloadFile", [&] { download->Wait(); });
    };
    RunTogether({wait, wait, wait, wait});
}

/// How many tasks the checks keep in flight: as many as they may, within reason.
std::size_t Crowd(CContext& context) { return std::min<std::size_t>(context.Client().GetConcurrentTaskLimit(), 64); }

std::string PathOf(std::size_t i) { return "folder/object" + std::to_string(i); }
bytes_t BytesOf(std::size_t i) { return MakeBytes(i, 100'000 + i); }

void TasksLetGoAreDone(CContext& context) {
    const std::size_t count = Crowd(context);
    for (std::size_t i = 0; i < count; ++i) {
        context.Client().UploadFileAsync(PathOf(i), Share(BytesOf(i)));
    }
    context.Reopen();
    for (std::size_t i = 0; i < count; ++i) {
        ExpectObject(context.Client(), PathOf(i), BytesOf(i));
    }
}

void ChangesLetGoAreDone(CContext& context) {
    Upload(context.Client(), "source", MakeBytes(1, 10));
    Upload(context.Client(), "deleted", MakeBytes(2, 10));
    Upload(context.Client(), "deleted folder/object", MakeBytes(3, 10));
    context.Client().CopyFileAsync("source", "target");
    context.Client().DeleteFileAsync("deleted");
    context.Client().DeleteFolderAsync("deleted folder", nullptr);
    context.Reopen();
    ExpectObject(context.Client(), "target", MakeBytes(1, 10));
    ExpectNoObject(context.Client(), "deleted");
    ExpectNoObject(context.Client(), "deleted folder/object");
}

void DownloadsLetGoAreDone(CContext& context) {
    Upload(context.Client(), "object", BytesOf(1));
    std::vector<ICloudClient::buffer_ptr> buffers;
    for (std::size_t i = 0; i < Crowd(context); ++i) {
        buffers.push_back(Share({}));
        context.Client().DownloadFileAsync("object", buffers.back());
    }
    context.Reopen();  // lets the client go, which waits for them
    for (const auto& buffer : buffers) {
        ExpectBytes(*buffer, BytesOf(1), "the buffer of a download that nobody waited for");
    }
}

void BuffersAreHeldUntilDone(CContext& context) {
    Upload(context.Client(), "object", BytesOf(1));
    std::vector<std::weak_ptr<bytes_t>> buffers;
    const auto fresh = [&](bytes_t bytes) {
        auto buffer = Share(std::move(bytes));
        buffers.push_back(buffer);
        return buffer;
    };
    for (std::size_t i = 0; i < std::max<std::size_t>(Crowd(context) / 3, 1); ++i) {
        context.Client().DownloadFileAsync("object", fresh({}));
        context.Client().DownloadFileAsync("object", fresh({}), 10, 1000);
        context.Client().UploadFileAsync(PathOf(i), fresh(BytesOf(i)));
    }
    context.Reopen();
    for (const auto& buffer : buffers) {
        Expect(buffer.expired(), "a buffer is let go when its task is done");
    }
    ExpectObject(context.Client(), PathOf(0), BytesOf(0));
}

void TasksOutliveClient(CContext& context) {
    const auto upload = context.Client().UploadFileAsync("object", Share(BytesOf(1)));
    const auto download = DownloadOfMissing(context, "missing");
    context.Reopen();
    ExpectObject(context.Client(), "object", BytesOf(1));
    upload->Wait();
    ExpectNotFound("DownloadFile", [&] { download->Wait(); });
}

void TasksInFlightUpToLimit(CContext& context) {
    std::vector<task::task_ptr> tasks;
    std::vector<ICloudClient::buffer_ptr> buffers;
    for (std::size_t i = 0; i < Crowd(context); ++i) {
        tasks.push_back(context.Client().UploadFileAsync(PathOf(i), Share(BytesOf(i))));
    }
    context.Client().CreateAsyncTaskUtils()->WaitAll(tasks);
    tasks.clear();
    for (std::size_t i = 0; i < Crowd(context); ++i) {
        buffers.push_back(Share({}));
        tasks.push_back(context.Client().DownloadFileAsync(PathOf(i), buffers.back()));
    }
    std::reverse(tasks.begin(), tasks.end());  // the order of waiting is free
    context.Client().CreateAsyncTaskUtils()->WaitAll(tasks);
    for (std::size_t i = 0; i < buffers.size(); ++i) {
        ExpectBytes(*buffers[i], BytesOf(i), "a download among many");
    }
}

/// A task of a caller's own: tells that it was waited for.
class CScriptedTask : public task::IAsyncTask {
public:
    explicit CScriptedTask(std::string failure = {}) : failure_(std::move(failure)) {}
    void Wait() override {
        isWaited_ = true;
        if (!failure_.empty()) {
            throw CConformanceFailure(failure_);
        }
    }
    [[nodiscard]] bool IsWaited() const { return isWaited_; }

private:
    const std::string failure_;
    std::atomic<bool> isWaited_ = false;
};

void UtilsWaitForAll(CContext& context) {
    const std::vector<std::shared_ptr<CScriptedTask>> scripted{
        std::make_shared<CScriptedTask>(), std::make_shared<CScriptedTask>("first"), std::make_shared<CScriptedTask>(),
        std::make_shared<CScriptedTask>("second"), std::make_shared<CScriptedTask>()};
    const std::vector<task::task_ptr> tasks(scripted.begin(), scripted.end());
    std::string failure = "none";
    try {
        context.Client().CreateAsyncTaskUtils()->WaitAll(tasks);
    } catch (const CConformanceFailure& thrown) {
        failure = thrown.what();
    }
    ExpectEqual(failure, "first", "the failure that waiting for a group throws");
    for (const auto& one : scripted) {
        Expect(one->IsWaited(), "every task of a group is waited for, also after a failure");
    }
}

void UtilsThrowFirstFailure(CContext& context) {
    const std::vector<task::task_ptr> tasks{
        context.Client().UploadFileAsync("one", Share(BytesOf(1))), DownloadOfMissing(context, "missing/a"),
        context.Client().UploadFileAsync("two", Share(BytesOf(2))), DownloadOfMissing(context, "missing/b")};
    const auto failure =
        FailureOf("waiting for a group", [&] { context.Client().CreateAsyncTaskUtils()->WaitAll(tasks); });
    Expect(failure.GetPath().ends_with("missing/a"), "the first failure in order is thrown, not " + failure.GetPath());
    ExpectObject(context.Client(), "one", BytesOf(1));
    ExpectObject(context.Client(), "two", BytesOf(2));
}

void UtilsWaitForNothing(CContext& context) { context.Client().CreateAsyncTaskUtils()->WaitAll({}); }

}  // namespace

void AddTaskChecks(checks_t& checks) {
    checks.insert(checks.end(), {
                                    {"LimitIsAtLeastOne", LimitIsAtLeastOne},
                                    {"SuccessAtEveryWait", SuccessAtEveryWait},
                                    {"SameFailureAtEveryWait", SameFailureAtEveryWait},
                                    {"ManyThreadsWaitForOneTask", ManyThreadsWaitForOneTask},
                                    {"TasksLetGoAreDone", TasksLetGoAreDone},
                                    {"ChangesLetGoAreDone", ChangesLetGoAreDone},
                                    {"DownloadsLetGoAreDone", DownloadsLetGoAreDone},
                                    {"BuffersAreHeldUntilDone", BuffersAreHeldUntilDone},
                                    {"TasksOutliveClient", TasksOutliveClient},
                                    {"TasksInFlightUpToLimit", TasksInFlightUpToLimit},
                                    {"UtilsWaitForAll", UtilsWaitForAll},
                                    {"UtilsThrowFirstFailure", UtilsThrowFirstFailure},
                                    {"UtilsWaitForNothing", UtilsWaitForNothing},
                                });
}

}  // namespace cloudclientlib::conformance
