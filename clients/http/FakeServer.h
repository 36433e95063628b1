#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

/// For tests: an HTTP server on loopback that answers as it is told, also wrongly.
namespace clients::http {

struct SFakeRequest {
    std::string method;
    /// As it came: a path with its query, or a whole address when the server is taken for a proxy.
    std::string target;
    /// Names in lower case.
    std::map<std::string, std::string> headers;
    std::string body;
};

struct SFakeAnswer {
    int status = 200;
    std::vector<std::pair<std::string, std::string>> headers = {};
    std::string body = {};
    /// What the header says instead of the body's length.
    std::optional<std::size_t> claimedLength = {};
    /// No header says the length: the connection's end does.
    bool unannounced = false;
    /// The connection is closed after the answer.
    bool close = false;
    /// The connection is reset before a byte is sent.
    bool reset = false;
    /// Nothing is sent any more, and the connection stays open as long as the server.
    bool stall = false;
};

/// A certificate of its own, for the name "localhost" and the address 127.0.0.1, valid from now for a day.
struct SFakeCertificate {
    SFakeCertificate();
    std::string certificatePem;
    std::string keyPem;
};

/// One thread per connection; the handler is called from them, one at a time.
class CFakeServer {
public:
    using handler_t = std::function<SFakeAnswer(const SFakeRequest&)>;

    /// With a certificate it speaks TLS.
    explicit CFakeServer(handler_t handler, const SFakeCertificate* certificate = nullptr);
    CFakeServer(const CFakeServer&) = delete;
    CFakeServer& operator=(const CFakeServer&) = delete;
    ~CFakeServer();

    /// "http://127.0.0.1:PORT", or with "https://".
    [[nodiscard]] std::string GetEndpoint() const;
    /// "127.0.0.1:PORT"
    [[nodiscard]] std::string GetHost() const;
    /// How many connections have come.
    [[nodiscard]] std::size_t GetConnections() const { return accepted_; }
    [[nodiscard]] std::size_t GetRequests() const { return answered_; }

private:
    class CChannel;
    struct STls;

    void Accept();
    void Serve(int socket);
    /// False when the connection is to end.
    bool Answer(CChannel& channel, const SFakeRequest& request);

    const handler_t handler_;
    const std::shared_ptr<STls> tls_;
    int listener_ = -1;
    unsigned port_ = 0;
    std::atomic<bool> stopping_ = false;
    std::atomic<std::size_t> accepted_ = 0;
    std::atomic<std::size_t> answered_ = 0;
    std::mutex handlerMutex_;
    std::mutex mutex_;
    std::vector<int> sockets_;              // guarded by mutex_
    std::vector<std::thread> connections_;  // guarded by mutex_
    std::thread acceptor_;
};

}  // namespace clients::http
