#include "clients/s3/Signature.h"

#include <algorithm>
#include <ctime>
#include <span>

#include "common/digest.h"

namespace clients::s3 {

namespace {

/// Without blanks at the ends, and with one where there were several.
std::string TrimAll(std::string_view value) {
    std::string trimmed;
    for (const char c : value) {
        if (c != ' ' || (!trimmed.empty() && trimmed.back() != ' ')) {
            trimmed += c;
        }
    }
    if (!trimmed.empty() && trimmed.back() == ' ') {
        trimmed.pop_back();
    }
    return trimmed;
}

std::span<const char> Bytes(const digest::sha256_digest_t& digest) {
    return {reinterpret_cast<const char*>(digest.bytes.data()), digest.bytes.size()};
}

digest::sha256_digest_t SigningKey(const SCredentials& credentials, std::string_view day, const std::string& region,
                                   const std::string& service) {
    crypto::sec_bytes_t secret = {'A', 'W', 'S', '4'};
    secret.insert(secret.end(), credentials.secretAccessKey.begin(), credentials.secretAccessKey.end());
    const auto dayKey = digest::HmacSha256(secret, day);
    const auto regionKey = digest::HmacSha256(Bytes(dayKey), region);
    const auto serviceKey = digest::HmacSha256(Bytes(regionKey), service);
    return digest::HmacSha256(Bytes(serviceKey), std::string_view("aws4_request"));
}

}  // namespace

std::string CanonicalQuery(const std::vector<std::pair<std::string, std::string>>& query) {
    std::vector<std::pair<std::string, std::string>> encoded;
    encoded.reserve(query.size());
    for (const auto& [name, value] : query) {
        encoded.emplace_back(UriEncode(name, false), UriEncode(value, false));
    }
    std::sort(encoded.begin(), encoded.end());
    std::string text;
    for (const auto& [name, value] : encoded) {
        text += (text.empty() ? "" : "&") + name + "=" + value;
    }
    return text;
}

std::string AmzDate(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::string text(sizeof("20130524T000000Z"), '\0');
    text.resize(std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &parts));
    return text;
}

std::string Authorization(const SSignedParts& request, const SCredentials& credentials, const std::string& region,
                          const std::string& service, const std::string& date) {
    auto headers = request.headers;
    std::sort(headers.begin(), headers.end());
    std::string canonicalHeaders;
    std::string signedHeaders;
    for (const auto& [name, value] : headers) {
        canonicalHeaders += name + ":" + TrimAll(value) + "\n";
        signedHeaders += (signedHeaders.empty() ? "" : ";") + name;
    }
    const std::string canonical = request.method + "\n" + UriEncode(request.path, true) + "\n" +
                                  CanonicalQuery(request.query) + "\n" + canonicalHeaders + "\n" + signedHeaders +
                                  "\n" + request.payloadHash;

    const std::string day = date.substr(0, 8);
    const std::string scope = day + "/" + region + "/" + service + "/aws4_request";
    const std::string toSign = "AWS4-HMAC-SHA256\n" + date + "\n" + scope + "\n" + digest::Sha256(canonical).ToAStr();
    const auto signature = digest::HmacSha256(Bytes(SigningKey(credentials, day, region, service)), toSign);
    return "AWS4-HMAC-SHA256 Credential=" + credentials.accessKeyId + "/" + scope + ",SignedHeaders=" + signedHeaders +
           ",Signature=" + signature.ToAStr();
}

}  // namespace clients::s3
