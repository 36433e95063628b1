#include "clients/http/Unprotected.h"

#include "common/logging.h"

namespace clients::http {

bool IsLoopback(const SEndpoint& endpoint) {
    const std::string host = endpoint.host.front() == '[' ? endpoint.host.substr(0, endpoint.host.find(']') + 1)
                                                          : endpoint.host.substr(0, endpoint.host.find(':'));
    const bool isAddress = !host.empty() && host.find_first_not_of("0123456789.") == std::string::npos;
    return host == "localhost" || host == "[::1]" || host.ends_with(".localhost") ||
           (isAddress && host.starts_with("127."));
}

void WarnIfUnprotected(const SEndpoint& endpoint) {
    if (endpoint.scheme == "http://" && !IsLoopback(endpoint)) {
        logging::Library().Warn("The connection to '%1' is plain HTTP: everybody on the way can read and change it",
                                endpoint.host);
    }
}

}  // namespace clients::http
