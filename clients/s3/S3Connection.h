#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "clients/http/HttpEngine.h"
#include "clients/s3/Credentials.h"

namespace clients::s3 {

/// Where a bucket is and how it is addressed.
struct SBucket {
    /// "https://host[:port]", without a path.
    std::string endpoint;
    std::string region;
    std::string name;
    /// "https://bucket.host/key" instead of "https://host/bucket/key".
    bool virtualHosted = false;
};

/// One request to a bucket, in plain form.
struct SRequest {
    std::string method = "GET";
    /// Empty for the bucket itself.
    std::string key = {};
    std::vector<std::pair<std::string, std::string>> query = {};
    /// Names in lower case.
    std::vector<std::pair<std::string, std::string>> headers = {};
    http::buffer_ptr body = {};
    http::buffer_ptr target = {};
    /// What a header "range" asks for.
    std::optional<http::SByteRange> range = {};
};

/// Sends signed requests to one bucket. Safe from any thread.
class CS3Connection {
public:
    using clock_t = std::function<std::chrono::system_clock::time_point()>;

    /// Throws cloudclientlib::CCloudExc for an endpoint that is none.
    CS3Connection(SBucket bucket, std::shared_ptr<ICredentials> credentials, http::SHttpOptions options, clock_t clock);

    /// Signs and starts; `done` is called in the engine's thread.
    void Start(const SRequest& request, http::CHttpEngine::done_t done);
    /// Waits for the result.
    [[nodiscard]] http::SHttpResult Run(const SRequest& request);
    [[nodiscard]] std::size_t GetConnections() const { return engine_.GetConnections(); }
    [[nodiscard]] bool IsBusy() const { return engine_.IsBusy(); }
    [[nodiscard]] const SBucket& GetBucket() const { return bucket_; }

private:
    [[nodiscard]] http::SHttpRequest Sign(const SRequest& request, const SCredentials& credentials) const;

    const SBucket bucket_;
    const std::shared_ptr<ICredentials> credentials_;
    const clock_t clock_;
    std::string scheme_;
    /// As it stands in the header "host".
    std::string host_;
    http::CHttpEngine engine_;
};

}  // namespace clients::s3
