#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>

namespace cloudclientlib {

/// A rate of bytes: a bucket that fills steadily, holds one second's worth at most and is full at first.
///
/// It only reckons: callers tell it the time and wait by themselves. Who asks first is served first, for each taking
/// stands behind those before it. Safe from any thread.
class CTokenBucket {
public:
    /// 0 for no limit: nothing ever waits.
    explicit CTokenBucket(std::uint64_t bytesPerSecond) : rate_(bytesPerSecond) {}

    /// Takes the bytes of a transfer, and returns how long it is to wait. It waits until the bucket holds its bytes;
    /// one that is larger than the bucket waits for a full one and leaves a debt to those after it. One of no bytes
    /// waits until there is no debt.
    [[nodiscard]] std::chrono::nanoseconds Take(std::chrono::nanoseconds now, std::uint64_t bytes);
    /// A transfer that took `taken` bytes is done and had `bytes`: takes the rest without waiting, or gives back.
    void Settle(std::chrono::nanoseconds now, std::uint64_t taken, std::uint64_t bytes);
    /// The most that Take takes without leaving a debt; everything without a limit.
    [[nodiscard]] std::uint64_t GetSize() const { return rate_ == 0 ? ~std::uint64_t{0} : rate_; }

private:
    /// With the mutex held.
    void FillUntil(std::chrono::nanoseconds now);

    const std::uint64_t rate_;
    std::mutex mutex_;
    /// What the bucket holds at the moment `at_`, which lies ahead while callers wait; below 0 for a debt.
    double level_ = static_cast<double>(rate_);  // guarded by mutex_
    std::chrono::nanoseconds at_{0};             // guarded by mutex_
};

}  // namespace cloudclientlib
