#include "clients/http/ClockError.h"

#include "clients/http/HttpDate.h"
#include "common/format.h"

namespace clients::http {

namespace {

using std::chrono::duration_cast;
using std::chrono::hours;
using std::chrono::minutes;

/// As one says it: of days nobody wants the minutes.
std::string InWords(minutes time) {
    if (time >= hours(48)) {
        return exc::Format("%1 days", duration_cast<hours>(time).count() / 24);
    }
    if (time >= hours(1)) {
        return exc::Format("%1 h %2 min", duration_cast<hours>(time).count(), (time % hours(1)).count());
    }
    return exc::Format("%1 min", time.count());
}

}  // namespace

std::string ClockError(const SHttpAnswer& answer, minutes least) {
    constexpr std::chrono::system_clock::time_point unknown;
    const auto service = ParseHttpDate(answer.Header("date"));
    if (service == unknown || answer.signedAt == unknown) {
        return {};
    }
    const auto error = std::chrono::round<minutes>(answer.signedAt - service);
    const bool isAhead = error > minutes::zero();
    const minutes size = isAhead ? error : -error;
    return size < least ? std::string()
                        : exc::Format(isAhead ? "this machine's clock is %1 ahead of the service's"
                                              : "this machine's clock is %1 behind the service's",
                                      InWords(size));
}

}  // namespace clients::http
