#pragma once

#include <chrono>
#include <memory>
#include <string>

namespace cloudclientlib {

/// The clock that waiting wrappers go by, so that tests need not wait. Safe from any thread.
class ITimer {
public:
    virtual ~ITimer() = default;
    /// Since a moment that stays the same; never goes back.
    [[nodiscard]] virtual std::chrono::nanoseconds Now() = 0;
    /// Blocks the caller.
    virtual void Wait(std::chrono::nanoseconds duration) = 0;
};

/// The system's steady clock.
[[nodiscard]] std::shared_ptr<ITimer> SystemTimer();

/// "5.6 ms" below a second, else "12 s": at most one digit behind the point.
[[nodiscard]] std::string DurationText(std::chrono::nanoseconds duration);

}  // namespace cloudclientlib
