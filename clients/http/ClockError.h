#pragma once

#include <chrono>
#include <string>

#include "clients/http/HttpEngine.h"

namespace clients::http {

/// How far the clock that a request was signed by is off the service's, as the answer's header "date" tells it: "this
/// machine's clock is 3 h 5 min ahead of the service's". Empty when it is off by less than `least`, and when that is
/// not known.
[[nodiscard]] std::string ClockError(const SHttpAnswer& answer, std::chrono::minutes least);

}  // namespace clients::http
