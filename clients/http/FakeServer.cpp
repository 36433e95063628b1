#include "clients/http/FakeServer.h"

#include "clients/http/HeaderText.h"

#include <arpa/inet.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace clients::http {

namespace {

template <auto free_function>
struct SFree {
    template <class T>
    void operator()(T* object) const {
        free_function(object);
    }
};

using bio_ptr = std::unique_ptr<BIO, SFree<BIO_free_all>>;
using key_ptr = std::unique_ptr<EVP_PKEY, SFree<EVP_PKEY_free>>;
using certificate_ptr = std::unique_ptr<X509, SFree<X509_free>>;

std::string TextOf(BIO* bio) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    return {data, static_cast<std::size_t>(size)};
}

void AddExtension(X509* certificate, int kind, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx_nodb(&context);
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, SFree<X509_EXTENSION_free>> extension(
        X509V3_EXT_conf_nid(nullptr, &context, kind, value));
    X509_add_ext(certificate, extension.get(), -1);
}

}  // namespace

SFakeCertificate::SFakeCertificate() {
    constexpr long day = 24L * 60 * 60;
    const key_ptr key(EVP_EC_gen("P-256"));
    const certificate_ptr certificate(X509_new());
    X509_set_version(certificate.get(), X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate.get()), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -day);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), day);
    X509_set_pubkey(certificate.get(), key.get());
    X509_NAME* const name = X509_get_subject_name(certificate.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("localhost"), -1, -1,
                               0);
    X509_set_issuer_name(certificate.get(), name);
    AddExtension(certificate.get(), NID_subject_alt_name, "DNS:localhost,IP:127.0.0.1");
    AddExtension(certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    X509_sign(certificate.get(), key.get(), EVP_sha256());

    const bio_ptr text(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(text.get(), certificate.get());
    certificatePem = TextOf(text.get());
    const bio_ptr keyText(BIO_new(BIO_s_mem()));
    PEM_write_bio_PrivateKey(keyText.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    keyPem = TextOf(keyText.get());
}

struct CFakeServer::STls {
    explicit STls(const SFakeCertificate& own) : context(SSL_CTX_new(TLS_server_method())) {
        const bio_ptr text(BIO_new_mem_buf(own.certificatePem.data(), static_cast<int>(own.certificatePem.size())));
        const certificate_ptr certificate(PEM_read_bio_X509(text.get(), nullptr, nullptr, nullptr));
        const bio_ptr keyText(BIO_new_mem_buf(own.keyPem.data(), static_cast<int>(own.keyPem.size())));
        const key_ptr key(PEM_read_bio_PrivateKey(keyText.get(), nullptr, nullptr, nullptr));
        SSL_CTX_use_certificate(context.get(), certificate.get());
        SSL_CTX_use_PrivateKey(context.get(), key.get());
    }
    std::unique_ptr<SSL_CTX, SFree<SSL_CTX_free>> context;
};

/// The bytes of one connection, with or without TLS.
class CFakeServer::CChannel {
public:
    CChannel(int socket, STls* tls) : socket_(socket) {
        if (tls != nullptr) {
            ssl_.reset(SSL_new(tls->context.get()));
            SSL_set_fd(ssl_.get(), socket);
            isOpen_ = SSL_accept(ssl_.get()) == 1;
        }
    }

    /// False when the peer is done.
    bool Read(SFakeRequest& request) {
        std::size_t headEnd = 0;
        while ((headEnd = data_.find("\r\n\r\n")) == std::string::npos) {
            if (!ReadMore()) {
                return false;
            }
        }
        ParseHead(data_.substr(0, headEnd + 2), request);
        data_.erase(0, headEnd + 4);
        const auto length = request.headers.find("content-length");
        const std::size_t size = length == request.headers.end() ? 0 : std::stoul(length->second);
        while (data_.size() < size) {
            if (!ReadMore()) {
                return false;
            }
        }
        request.body = data_.substr(0, size);
        data_.erase(0, size);
        return true;
    }

    void Write(const std::string& text) {
        for (std::size_t sent = 0; sent < text.size();) {
            const auto left = text.size() - sent;
            const ssize_t count = ssl_ ? SSL_write(ssl_.get(), text.data() + sent, static_cast<int>(left))
                                       : ::send(socket_, text.data() + sent, left, MSG_NOSIGNAL);
            if (count <= 0) {
                return;
            }
            sent += static_cast<std::size_t>(count);
        }
    }

    void Reset() const {
        const linger now{1, 0};
        ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    }

private:
    bool ReadMore() {
        std::array<char, 65536> buffer{};
        if (!isOpen_) {
            return false;
        }
        const ssize_t count = ssl_ ? SSL_read(ssl_.get(), buffer.data(), static_cast<int>(buffer.size()))
                                   : ::recv(socket_, buffer.data(), buffer.size(), 0);
        if (count <= 0) {
            return false;
        }
        data_.append(buffer.data(), static_cast<std::size_t>(count));
        return true;
    }

    static void ParseHead(const std::string& head, SFakeRequest& request) {
        const std::size_t first = head.find(' ');
        const std::size_t second = head.find(' ', first + 1);
        request.method = head.substr(0, first);
        request.target = head.substr(first + 1, second - first - 1);
        for (std::size_t at = head.find("\r\n") + 2; at < head.size();) {
            const std::size_t end = head.find("\r\n", at);
            const std::size_t colon = head.find(':', at);
            const std::string name = ToLower(head.substr(at, colon - at));
            const std::size_t value = std::min(end, head.find_first_not_of(' ', colon + 1));
            request.headers[name] = head.substr(value, end - value);
            at = end + 2;
        }
    }

    const int socket_;
    std::unique_ptr<SSL, SFree<SSL_free>> ssl_;
    bool isOpen_ = true;
    std::string data_;
};

CFakeServer::CFakeServer(handler_t handler, const SFakeCertificate* certificate)
    : handler_(std::move(handler)), tls_(certificate != nullptr ? std::make_shared<STls>(*certificate) : nullptr) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(listener_, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        ::listen(listener_, SOMAXCONN) != 0 ||
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throw std::runtime_error("cannot listen on loopback");
    }
    port_ = ntohs(address.sin_port);
    acceptor_ = std::thread([this] { Accept(); });
}

CFakeServer::~CFakeServer() {
    stopping_ = true;
    ::shutdown(listener_, SHUT_RDWR);
    acceptor_.join();
    ::close(listener_);
    {
        const std::lock_guard lock(mutex_);
        for (const int socket : sockets_) {
            ::shutdown(socket, SHUT_RDWR);
        }
    }
    for (std::thread& connection : connections_) {
        connection.join();
    }
}

std::string CFakeServer::GetEndpoint() const { return (tls_ ? "https://" : "http://") + GetHost(); }
std::string CFakeServer::GetHost() const { return "127.0.0.1:" + std::to_string(port_); }

void CFakeServer::Accept() {
    while (!stopping_) {
        const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) {
            continue;
        }
        ++accepted_;
        const std::lock_guard lock(mutex_);
        sockets_.push_back(socket);
        connections_.emplace_back([this, socket] { Serve(socket); });
    }
}

void CFakeServer::Serve(int socket) {
    {
        CChannel channel(socket, tls_.get());
        SFakeRequest request;
        while (channel.Read(request) && Answer(channel, request)) {
            request = {};
        }
    }
    const std::lock_guard lock(mutex_);
    std::erase(sockets_, socket);
    ::close(socket);
}

bool CFakeServer::Answer(CChannel& channel, const SFakeRequest& request) {
    SFakeAnswer answer;
    {
        const std::lock_guard lock(handlerMutex_);
        answer = handler_(request);
    }
    ++answered_;
    if (answer.reset) {
        channel.Reset();
        return false;
    }
    if (answer.stall) {
        SFakeRequest none;
        static_cast<void>(channel.Read(none));  // until the peer or the server gives up
        return false;
    }
    std::string text = "HTTP/1.1 " + std::to_string(answer.status) + " Answer\r\n";
    for (const auto& [name, value] : answer.headers) {
        text += name + ": " + value + "\r\n";
    }
    if (!answer.unannounced) {
        text += "content-length: " + std::to_string(answer.claimedLength.value_or(answer.body.size())) + "\r\n";
    }
    text += "\r\n";
    channel.Write(request.method == "HEAD" ? text : text + answer.body);
    return !answer.close && !answer.unannounced;
}

}  // namespace clients::http
