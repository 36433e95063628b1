#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/cnt.h"
#include "common/digest.h"

namespace clients::http {

using buffer_ptr = std::shared_ptr<cnt::array_t<char>>;

/// Bytes of an object.
struct SByteRange {
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

/// A request, complete: signed, with its body in memory.
struct SHttpRequest {
    std::string method = "GET";
    std::string url;
    std::vector<std::pair<std::string, std::string>> headers = {};
    /// Left alone by the caller until the request is done; empty for none.
    std::shared_ptr<const cnt::array_t<char>> body = {};
    /// Where the bytes of a successful answer go (it is emptied first); the answer's own body when this is empty.
    buffer_ptr target = {};
    /// What the request's headers ask for, when that is a part: of a server that sends the whole object instead (200),
    /// as it may, these bytes are kept and the others passed over; 1 MiB behind them the transfer is ended. A part
    /// (206) with more bytes is no answer: it fails.
    std::optional<SByteRange> range = {};
    /// More bytes than this are no answer to this request: it fails. For the target it counts when the server does not
    /// announce a length, and it needs no more than it announces.
    std::uint64_t maxAnswer = 64U << 20U;
    /// When it was signed, by the clock of who did; told again with the answer.
    std::chrono::system_clock::time_point signedAt = {};
};

/// What came back. Names of headers are in lower case; of headers that come twice the last counts.
struct SHttpAnswer {
    long status = 0;
    std::map<std::string, std::string> headers = {};
    /// Of a failed request at most 64 KiB are kept, and no more than 1 MiB taken.
    std::string body = {};
    /// The clock's epoch when the request was not signed.
    std::chrono::system_clock::time_point signedAt = {};
    /// Of all bytes of an object that came whole though a range was asked for.
    std::optional<digest::md5_digest_t> wholeMd5 = {};
    /// Set by who signed the request: what it was signed with is refused, and another attempt will be signed with other
    /// credentials.
    bool otherCredentials = false;

    [[nodiscard]] bool IsSuccess() const { return status >= 200 && status < 300; }
    /// Empty when there is none.
    [[nodiscard]] std::string Header(const std::string& lowerCaseName) const;
    /// How long the service asks to wait (RFC 9110, section 10.2.3), in seconds or until a time by its own clock; 0
    /// when it does not.
    [[nodiscard]] std::chrono::milliseconds RetryAfter() const;
};

/// Why no answer came.
struct SHttpFailure {
    std::string text;
    /// Trying again may help: the network failed, not the request or the setting.
    bool retryable = false;
};

/// Either an answer, of whatever status, or a failure.
struct SHttpResult {
    SHttpAnswer answer = {};
    std::shared_ptr<const SHttpFailure> failure = {};
};

struct SHttpOptions {
    /// Kept alive and used again; more requests than this wait for one to be free.
    std::size_t connections = 16;
    /// Certificates to trust instead of the system's; empty for the system's.
    std::string caFile = {};
    /// Whether a server's certificate is checked. Only for tests against servers of one's own.
    bool dangerouslySkipCertificateChecks = false;
    /// "http://host:port"; empty for none. The environment's proxy settings are not used.
    std::string proxy = {};
    std::string proxyUser = {};
    /// A secret.
    std::string proxyPassword = {};
    std::chrono::milliseconds connectTimeout = std::chrono::seconds(15);
    /// A transfer that moves next to nothing (less than 100 bytes a second) for so long is given up.
    std::chrono::seconds stallTimeout = std::chrono::seconds(60);
};

/// Sends HTTP requests over a bounded set of keep-alive connections, all from one thread of its own.
///
/// Safe from any thread. The destructor waits for every request that was started. No redirects are followed, since a
/// signature holds for one address. Built on libcurl's multi interface.
class CHttpEngine {
public:
    /// Called in the engine's thread, once; must not block and must not throw.
    using done_t = std::function<void(SHttpResult result)>;

    explicit CHttpEngine(SHttpOptions options);
    CHttpEngine(const CHttpEngine&) = delete;
    CHttpEngine& operator=(const CHttpEngine&) = delete;
    ~CHttpEngine();

    void Start(SHttpRequest request, done_t done);
    /// Waits for the result. Not from the engine's own thread.
    [[nodiscard]] SHttpResult Run(SHttpRequest request);
    [[nodiscard]] std::size_t GetConnections() const;
    /// Every connection has a request: a further one would wait, and hold its body meanwhile.
    [[nodiscard]] bool IsBusy() const;

private:
    class CLoop;
    const std::unique_ptr<CLoop> loop_;
};

}  // namespace clients::http
