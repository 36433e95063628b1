#include "cloudbackuplib/backup/TaskGroup.h"

#include <utility>

namespace cloudbackuplib::backup {

namespace {

class CQuietTask : public task::IAsyncTask {
public:
    explicit CQuietTask(task::task_ptr inner) : inner_(std::move(inner)) {}

    void Wait() override {
        try {
            inner_->Wait();
        } catch (...) {  // whoever holds the task itself is told
        }
    }

private:
    const task::task_ptr inner_;
};

}  // namespace

CTaskGroup::~CTaskGroup() {
    for (const auto& one : tasks_) {
        CQuietTask(one).Wait();
    }
}

void CTaskGroup::Wait() {
    const auto utils = client_.CreateAsyncTaskUtils();
    const std::vector<task::task_ptr> tasks = std::exchange(tasks_, {});
    utils->WaitAll(tasks);
}

task::task_ptr FailedWithCurrentException() {
    const auto failed = std::make_shared<task::CPromiseTask>();
    failed->SetFailed(std::current_exception());
    return failed;
}

task::task_ptr IgnoringFailure(task::task_ptr inner) { return std::make_shared<CQuietTask>(std::move(inner)); }

}  // namespace cloudbackuplib::backup
