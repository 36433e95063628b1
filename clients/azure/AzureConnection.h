#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "clients/azure/Account.h"
#include "clients/azure/SharedKey.h"
#include "clients/http/HttpEngine.h"

namespace clients::azure {

using headers_t = std::vector<std::pair<std::string, std::string>>;

/// One request to a container, in plain form.
struct SRequest {
    std::string method = "GET";
    /// The object's name; empty for the container itself.
    std::string blob = {};
    std::vector<std::pair<std::string, std::string>> query = {};
    /// Names in lower case.
    headers_t headers = {};
    http::buffer_ptr body = {};
    http::buffer_ptr target = {};
    /// What a header "range" asks for.
    std::optional<http::SByteRange> range = {};
};

/// Sends signed requests to one container. Safe from any thread. No result holds the shared access signature, whatever
/// a server sends back.
class CAzureConnection {
public:
    using clock_t = std::function<std::chrono::system_clock::time_point()>;

    /// Throws cloudclientlib::CCloudExc for a container's name that is none.
    CAzureConnection(SAccount account, std::string container, http::SHttpOptions options, clock_t clock);

    /// Signs and starts; `done` is called in the engine's thread.
    void Start(const SRequest& request, http::CHttpEngine::done_t done);
    /// Waits for the result.
    [[nodiscard]] http::SHttpResult Run(const SRequest& request);

    /// The head of a request that travels in a batch, signed by itself; ended by a line end.
    [[nodiscard]] std::string BatchHead(const std::string& method, const std::string& blob) const;
    /// An object's address as the source of a copy; a secret when the account is opened by a signature.
    [[nodiscard]] std::string SourceUrl(const std::string& blob) const;

    [[nodiscard]] bool IsBusy() const { return engine_.IsBusy(); }

private:
    [[nodiscard]] http::SHttpRequest Sign(const SRequest& request) const;
    [[nodiscard]] std::string PathOf(const std::string& blob) const;
    /// The query as it stands in the address, with the signature; with its "?".
    [[nodiscard]] std::string QueryText(const SRequest& request) const;
    /// Adds the header that proves who asks, when that is not done by the query.
    void Authorize(const SSignedParts& parts, headers_t& headers) const;
    [[nodiscard]] http::SHttpResult WithoutSecrets(http::SHttpResult result) const;

    const SAccount account_;
    const std::string container_;
    const clock_t clock_;
    /// What must not be told to anybody.
    std::vector<crypto::sec_bytes_t> secrets_;
    http::CHttpEngine engine_;
};

}  // namespace clients::azure
