#include "clients/http/HttpTransfer.h"

#include <algorithm>
#include <cctype>
#include <new>

#include "common/format.h"

namespace clients::http {

namespace {

constexpr std::size_t keptErrorBody = 64U << 10U;
constexpr std::size_t mostHeaders = 200;
constexpr long bufferSize = 256L << 10U;
/// In bytes a second: a connection on which less moves is as good as dead, and a new one may not be.
constexpr long stalledSpeed = 100;
/// No more is set aside for a body on the word of a header alone.
constexpr std::uint64_t mostReserved = 64U << 20U;

/// Failures of the network, which may pass; others are the request's or the setting's.
bool MayPass(CURLcode code) {
    switch (code) {
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_RESOLVE_PROXY:
        case CURLE_COULDNT_CONNECT:
        case CURLE_PARTIAL_FILE:
        case CURLE_OPERATION_TIMEDOUT:
        case CURLE_GOT_NOTHING:
        case CURLE_SEND_ERROR:
        case CURLE_RECV_ERROR:
        case CURLE_WEIRD_SERVER_REPLY:
        case CURLE_SSL_CONNECT_ERROR:
            return true;
        default:
            return false;
    }
}

std::string Trim(std::string_view text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    return first == std::string_view::npos
               ? std::string()
               : std::string(text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1));
}

}  // namespace

CHttpTransfer::CHttpTransfer() : handle_(curl_easy_init()), errorText_(CURL_ERROR_SIZE, '\0') {
    if (!handle_) {
        throw std::bad_alloc();
    }
}

void CHttpTransfer::Prepare(SHttpRequest request, const SHttpOptions& options) {
    request_ = std::move(request);
    answer_ = {};
    tooLarge_ = false;
    errorText_[0] = '\0';
    if (request_.target) {
        request_.target->clear();
    }
    curl_easy_reset(handle_.get());  // connections stay
    SetConnection(options);
    curl_easy_setopt(handle_.get(), CURLOPT_URL, request_.url.c_str());
    SetHeaders();
    SetBody();
}

void CHttpTransfer::SetConnection(const SHttpOptions& options) {
    CURL* const handle = handle_.get();
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(handle, CURLOPT_PATH_AS_IS, 1L);  // the path is signed as it stands
    curl_easy_setopt(handle, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(handle, CURLOPT_TCP_NODELAY, 1L);
    curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, bufferSize);
    curl_easy_setopt(handle, CURLOPT_UPLOAD_BUFFERSIZE, bufferSize);
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(options.connectTimeout.count()));
    curl_easy_setopt(handle, CURLOPT_LOW_SPEED_LIMIT, stalledSpeed);
    curl_easy_setopt(handle, CURLOPT_LOW_SPEED_TIME, static_cast<long>(options.stallTimeout.count()));
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorText_.data());
    if (!options.caFile.empty()) {
        curl_easy_setopt(handle, CURLOPT_CAINFO, options.caFile.c_str());
    }
    if (options.dangerouslySkipCertificateChecks) {
        curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, 0L);
        curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, 0L);
    }
    curl_easy_setopt(handle, CURLOPT_PROXY, options.proxy.c_str());  // empty: none, whatever the environment says
    if (!options.proxyUser.empty()) {
        curl_easy_setopt(handle, CURLOPT_PROXYUSERNAME, options.proxyUser.c_str());
        curl_easy_setopt(handle, CURLOPT_PROXYPASSWORD, options.proxyPassword.c_str());
    }
}

void CHttpTransfer::SetHeaders() {
    headers_.reset();
    const auto append = [this](const std::string& line) {
        curl_slist* const longer = curl_slist_append(headers_.get(), line.c_str());
        if (longer == nullptr) {
            throw std::bad_alloc();
        }
        static_cast<void>(headers_.release());
        headers_.reset(longer);
    };
    append("Expect:");        // bodies are small: asking first costs a round trip
    append("Content-Type:");  // unless the request says one
    for (const auto& [name, value] : request_.headers) {
        append(value.empty() ? name + ";" : name + ": " + value);
    }
    curl_easy_setopt(handle_.get(), CURLOPT_HTTPHEADER, headers_.get());
    curl_easy_setopt(handle_.get(), CURLOPT_HEADERFUNCTION, &CHttpTransfer::OnHeader);
    curl_easy_setopt(handle_.get(), CURLOPT_HEADERDATA, this);
    curl_easy_setopt(handle_.get(), CURLOPT_WRITEFUNCTION, &CHttpTransfer::OnBody);
    curl_easy_setopt(handle_.get(), CURLOPT_WRITEDATA, this);
}

void CHttpTransfer::SetBody() {
    CURL* const handle = handle_.get();
    if (request_.method == "HEAD") {
        curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
        return;
    }
    if (request_.body || request_.method == "PUT" || request_.method == "POST") {
        curl_easy_setopt(handle, CURLOPT_POST, 1L);
        curl_easy_setopt(handle, CURLOPT_POSTFIELDS, request_.body ? request_.body->data() : "");
        curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request_.body ? request_.body->size() : 0));
    }
    curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, request_.method.c_str());
}

std::size_t CHttpTransfer::OnBody(char* data, std::size_t /*one*/, std::size_t size, void* self) {
    return static_cast<CHttpTransfer*>(self)->TakeBody(data, size);
}

std::size_t CHttpTransfer::OnHeader(char* data, std::size_t /*one*/, std::size_t size, void* self) {
    static_cast<CHttpTransfer*>(self)->TakeHeader({data, size});
    return size;
}

std::size_t CHttpTransfer::TakeBody(const char* data, std::size_t size) {
    long status = 0;
    curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &status);
    const bool success = status >= 200 && status < 300;
    if (!success) {
        answer_.body.append(data, std::min(size, keptErrorBody - std::min(keptErrorBody, answer_.body.size())));
        return size;
    }
    const std::size_t have = request_.target ? request_.target->size() : answer_.body.size();
    if (size > request_.maxAnswer - std::min<std::uint64_t>(have, request_.maxAnswer)) {
        tooLarge_ = true;
        return 0;  // ends the transfer
    }
    if (request_.target) {
        if (have == 0) {
            ReserveAnnounced();
        }
        request_.target->insert(request_.target->end(), data, data + size);
    } else {
        answer_.body.append(data, size);
    }
    return size;
}

/// Growing by doubling would touch, and copy, most of the body twice.
void CHttpTransfer::ReserveAnnounced() {
    curl_off_t announced = 0;
    if (curl_easy_getinfo(handle_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced) == CURLE_OK && announced > 0) {
        request_.target->reserve(std::min({static_cast<std::uint64_t>(announced), request_.maxAnswer, mostReserved}));
    }
}

void CHttpTransfer::TakeHeader(std::string line) {
    if (line.starts_with("HTTP/")) {
        answer_.headers.clear();  // an interim answer came before
        return;
    }
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos || answer_.headers.size() >= mostHeaders) {
        return;
    }
    std::string name = line.substr(0, colon);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    answer_.headers[std::move(name)] = Trim(std::string_view(line).substr(colon + 1));
}

SHttpFailure CHttpTransfer::Describe(CURLcode code) const {
    if (tooLarge_) {
        return {exc::Format("the answer is longer than %1 bytes", request_.maxAnswer), false};
    }
    const std::string detail = errorText_.substr(0, errorText_.find('\0'));
    return {detail.empty() ? curl_easy_strerror(code) : detail, MayPass(code)};
}

SHttpResult CHttpTransfer::TakeResult(CURLcode code) {
    SHttpResult result;
    curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &answer_.status);
    if (code != CURLE_OK) {
        result.failure = std::make_shared<const SHttpFailure>(Describe(code));
    }
    answer_.signedAt = request_.signedAt;
    result.answer = std::move(answer_);
    request_ = {};
    return result;
}

}  // namespace clients::http
