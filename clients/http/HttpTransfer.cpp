#include "clients/http/HttpTransfer.h"

#include "clients/http/HeaderText.h"

#include <algorithm>
#include <cctype>
#include <new>

#include "common/format.h"

namespace clients::http {

namespace {

constexpr std::size_t keptErrorBody = 64U << 10U;
constexpr std::uint64_t mostErrorBody = 1U << 20U;
/// Of what nobody asked for: to end the transfer costs a new connection.
constexpr std::uint64_t mostBehindRange = 1U << 20U;
constexpr long partialContent = 206;
constexpr long proxyAuthenticationRequired = 407;
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

}  // namespace

CHttpTransfer::CHttpTransfer() : handle_(curl_easy_init()), errorText_(CURL_ERROR_SIZE, '\0') {
    if (!handle_) {
        throw std::bad_alloc();
    }
}

void CHttpTransfer::Prepare(SHttpRequest request, const SHttpOptions& options) {
    request_ = std::move(request);
    answer_ = {};
    seen_ = 0;
    tooLarge_ = false;
    isEnough_ = false;
    wholeMd5_.reset();
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
    const std::uint64_t before = seen_;
    seen_ += size;
    const std::string_view bytes(data, size);
    if (!success) {
        return TakeErrorBody(bytes);
    }
    if (before == 0 && request_.target) {
        // Growing by doubling would touch, and copy, most of the body twice.
        const auto announced = static_cast<std::uint64_t>(std::max<curl_off_t>(AnnouncedBytes(), 0));
        request_.target->reserve(std::min({announced, MostBytes(), mostReserved}));
    }
    return request_.range && status != partialContent ? TakeOfWhole(bytes) : Take(bytes);
}

/// To take less than what came ends the transfer.
std::size_t CHttpTransfer::TakeErrorBody(std::string_view data) {
    answer_.body.append(data.substr(0, keptErrorBody - std::min(keptErrorBody, answer_.body.size())));
    isEnough_ = seen_ > mostErrorBody;
    return isEnough_ ? 0 : data.size();
}

std::size_t CHttpTransfer::TakeOfWhole(std::string_view data) {
    const std::uint64_t begin = seen_ - data.size();
    const std::uint64_t wanted = std::clamp(request_.range->offset, begin, seen_);
    const std::uint64_t end = request_.range->offset + request_.range->size;
    static_cast<void>(Take(data.substr(wanted - begin, std::clamp(end, wanted, seen_) - wanted)));
    if (!wholeMd5_) {
        wholeMd5_.emplace();
    }
    wholeMd5_->Update(data);
    isEnough_ = seen_ > end + mostBehindRange;
    return isEnough_ ? 0 : data.size();
}

std::size_t CHttpTransfer::Take(std::string_view data) {
    const std::size_t have = request_.target ? request_.target->size() : answer_.body.size();
    if (data.size() > MostBytes() - std::min<std::uint64_t>(have, MostBytes())) {
        tooLarge_ = true;
        return 0;
    }
    if (request_.target) {
        request_.target->insert(request_.target->end(), data.begin(), data.end());
    } else {
        answer_.body.append(data);
    }
    return data.size();
}

std::uint64_t CHttpTransfer::MostBytes() const {
    if (request_.range) {
        return request_.range->size;
    }
    const curl_off_t announced = request_.target ? AnnouncedBytes() : -1;
    return announced < 0 ? request_.maxAnswer : static_cast<std::uint64_t>(announced);
}

curl_off_t CHttpTransfer::AnnouncedBytes() const {
    curl_off_t announced = -1;
    const auto code = curl_easy_getinfo(handle_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced);
    return code == CURLE_OK ? announced : -1;
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
    answer_.headers[ToLower(line.substr(0, colon))] = Trim(std::string_view(line).substr(colon + 1));
}

SHttpFailure CHttpTransfer::Describe(CURLcode code) const {
    if (tooLarge_) {
        return {exc::Format("the answer is longer than %1 bytes", MostBytes()), false};
    }
    long tunnel = 0;  // what the proxy answered to a CONNECT
    curl_easy_getinfo(handle_.get(), CURLINFO_HTTP_CONNECTCODE, &tunnel);
    if (tunnel == proxyAuthenticationRequired || answer_.status == proxyAuthenticationRequired) {
        return {"the proxy wants a user and a password, or others (HTTP 407)", false};
    }
    if (tunnel >= 400 && tunnel < 500) {
        return {exc::Format("the proxy refuses the connection (HTTP %1)", tunnel), false};
    }
    const std::string detail = errorText_.substr(0, errorText_.find('\0'));
    return {detail.empty() ? curl_easy_strerror(code) : detail, MayPass(code)};
}

SHttpResult CHttpTransfer::TakeResult(CURLcode code) {
    SHttpResult result;
    curl_easy_getinfo(handle_.get(), CURLINFO_RESPONSE_CODE, &answer_.status);
    if ((code != CURLE_OK && !isEnough_) || answer_.status == proxyAuthenticationRequired) {
        result.failure = std::make_shared<const SHttpFailure>(Describe(code));
    }
    if (wholeMd5_ && !isEnough_) {
        answer_.wholeMd5 = wholeMd5_->Finish();
    }
    answer_.signedAt = request_.signedAt;
    result.answer = std::move(answer_);
    request_ = {};
    return result;
}

}  // namespace clients::http
