#pragma once

#include "clients/http/Uri.h"

namespace clients::http {

/// Whether the host is this machine itself.
[[nodiscard]] bool IsLoopback(const SEndpoint& endpoint);

/// Logs a warning when what is sent to the endpoint can be read on the way: plain HTTP to another machine.
void WarnIfUnprotected(const SEndpoint& endpoint);

}  // namespace clients::http
