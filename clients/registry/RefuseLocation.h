#pragma once

#include <string>
#include <utility>

#include "cloudclientlib/CloudExc.h"

namespace clients {

/// Throws what says why a location cannot be opened. `shown` is of the location what holds no secret.
[[noreturn]] inline void RefuseLocation(const std::string& shown, std::string reason) {
    throw cloudclientlib::CCloudExc({cloudclientlib::EFailure::other, false, "OpenLocation", shown, std::move(reason)});
}

}  // namespace clients
