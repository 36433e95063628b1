#include "cloudclientlib/wrappers/Timer.h"

#include <thread>

namespace cloudclientlib {

namespace {

using std::chrono::nanoseconds;

class CSystemTimer : public ITimer {
public:
    nanoseconds Now() override { return std::chrono::steady_clock::now().time_since_epoch(); }
    void Wait(nanoseconds duration) override { std::this_thread::sleep_for(duration); }
};

/// The duration in tenths of the unit, rounded.
std::string TenthsText(nanoseconds duration, nanoseconds tenth, const char* unit) {
    const auto tenths = (duration + tenth / 2) / tenth;
    std::string text = std::to_string(tenths / 10);
    if (tenths % 10 != 0) {
        text += '.' + std::to_string(tenths % 10);
    }
    return text + ' ' + unit;
}

}  // namespace

std::shared_ptr<ITimer> SystemTimer() {
    static const auto timer = std::make_shared<CSystemTimer>();
    return timer;
}

std::string DurationText(nanoseconds duration) {
    return duration < std::chrono::seconds(1) ? TenthsText(duration, std::chrono::microseconds(100), "ms")
                                              : TenthsText(duration, std::chrono::milliseconds(100), "s");
}

}  // namespace cloudclientlib
