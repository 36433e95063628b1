#pragma once

#include <chrono>
#include <mutex>
#include <vector>

#include "cloudclientlib/wrappers/Timer.h"

namespace cloudclientlib {

/// A clock that stands still unless it is told: waiting moves it on and takes no time. Safe from any thread.
class CFakeTimer : public ITimer {
public:
    std::chrono::nanoseconds Now() override {
        const std::lock_guard lock(mutex_);
        return now_;
    }
    void Wait(std::chrono::nanoseconds duration) override {
        const std::lock_guard lock(mutex_);
        now_ += duration;
        waits_.push_back(duration);
    }

    void Advance(std::chrono::nanoseconds duration) {
        const std::lock_guard lock(mutex_);
        now_ += duration;
    }
    [[nodiscard]] std::vector<std::chrono::nanoseconds> GetWaits() const {
        const std::lock_guard lock(mutex_);
        return waits_;
    }

private:
    mutable std::mutex mutex_;
    std::chrono::nanoseconds now_{0};              // guarded by mutex_
    std::vector<std::chrono::nanoseconds> waits_;  // guarded by mutex_
};

}  // namespace cloudclientlib
